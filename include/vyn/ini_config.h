#pragma once

#include <iosfwd>
#include <map>
#include <string>

#include <vyn/export.h>

namespace vyn {

// A settings file in memory: a flat set of keys with values.
//
// The file is text, an entry "key = value" a line. Blanks (space, and the characters 9 to 13)
// around key and value do not count; further "=" belong to the value. A line that begins with "#"
// and a line without "=" are skipped, so sections have no meaning. The last of several values of
// a key holds. ONLY LINES THAT END IN A LINE FEED COUNT: text behind the last one is not read.
//
// Not synchronised: callers that share one between threads lock around it.
class VYN_API IniConfig {
  public:
    // Without entries and without a file.
    IniConfig();
    // As load().
    explicit IniConfig(const std::string& filePath);

    // Takes the entries of the file over those that are here; keys the file does not name stay. A
    // file that is empty or cannot be read changes nothing; the latter is logged, and false comes
    // back. save() writes to `filePath` from now on.
    bool load(const std::string& filePath);

    // Writes all entries, and nothing else, to the file last loaded. The file is replaced as a
    // whole: whoever reads it, also after a crash or a power loss, finds either the old or the new
    // content. A symbolic link is followed; mode, owner and extended attributes are kept; other
    // hard links to the file keep the old content. Of processes that save at once the last one
    // wins.
    //
    // Where the directory does not let the file be replaced, or its owner cannot be kept, it is
    // rewritten in place: a crash meanwhile can then cost its content.
    //
    // False when the file cannot be written, such as on a full disk; the old content stays then.
    //
    // Waits for the storage. A process that is killed meanwhile may leave a file beside the target,
    // named as that with an identifier and ".tmp" behind, which can be deleted.
    bool save();

    // Writes "key=value" for each entry in the order of the keys' bytes, each followed by a newline
    // and a flush.
    void dump(std::ostream& stream) const;

    // The value, or `def` when the key is not there.
    [[nodiscard]] std::string get(const std::string& key, const std::string& def) const;

    // Inserts or replaces an entry, and with `andSave` writes the whole file. A key or value that
    // holds a newline, or that begins or ends in blanks, does not come back from the file as it
    // was.
    void set(const std::string& key, const std::string& value, bool andSave);

    // True when there is such an entry, be its value empty.
    [[nodiscard]] bool exist(const std::string& key) const;

  private:
    void parseLine(const std::string& line);

    std::string path;
    std::map<std::string, std::string> entries;
};

// As dump().
VYN_API std::ostream& operator<<(std::ostream& stream, const IniConfig& config);

}  // namespace vyn

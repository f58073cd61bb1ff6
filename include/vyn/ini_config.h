// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cfloat>
#include <climits>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include <vyn/export.h>

namespace vyn {

// A settings file in memory: a flat set of keys with values.
//
// The file is text, an entry "key = value" a line. Blanks (space, and the characters 9 to 13)
// around key and value do not count; further "=" belong to the value. A line that begins with "#"
// and a line without "=" are skipped, so sections have no meaning. The last of several values of
// a key holds. ONLY LINES THAT END IN A LINE FEED COUNT: text behind the last one is not read.
//
// A program that shall notice that its file has changed watches the file's folder with an
// InotifyDevice; examples/gateway/settings.h does it, and reads what has changed into a new object.
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
    // What the last load() gave back, which the constructor cannot; false without one.
    [[nodiscard]] bool ok() const;

    // Writes all entries, and nothing else, to the file last loaded, as replaceFile() does (see
    // file_utils.h): whoever reads it, also after a crash or a power loss, finds either the old or
    // the new content. Of processes that save at once the last one wins.
    //
    // False, with an error line, when the file cannot be written, such as on a full disk, and when
    // it could not be read: entries that are not known here would be lost. That it did not exist is
    // no hindrance. The old content stays then.
    bool save();

    // Writes "key=value" for each entry in the order of the keys' bytes, each followed by a newline
    // and a flush.
    void dump(std::ostream& stream) const;

    // The value, or `def` when the key is not there.
    [[nodiscard]] std::string get(const std::string& key, const std::string& def) const;

    // The value as one of a type; see setting_value.h for what is understood. The default when the
    // key is not there, its value empty or, with a warning the first time, of no use.
    [[nodiscard]] int getInt(const std::string& key, int def, int min = INT_MIN,
                             int max = INT_MAX) const;
    [[nodiscard]] int64_t getInt64(const std::string& key, int64_t def, int64_t min = INT64_MIN,
                                   int64_t max = INT64_MAX) const;
    [[nodiscard]] double getDouble(const std::string& key, double def, double min = -DBL_MAX,
                                   double max = DBL_MAX) const;
    [[nodiscard]] bool getBool(const std::string& key, bool def) const;

    // Inserts or replaces an entry, and with `andSave` writes the whole file and gives back what
    // save() does; else true. A key or value that holds a newline, or that begins or ends in
    // blanks, does not come back from the file as it was.
    bool set(const std::string& key, const std::string& value, bool andSave);

    // Takes an entry away, if there is one. `andSave` and the result as for set().
    bool remove(const std::string& key, bool andSave);

    // All keys, in the order of their bytes.
    [[nodiscard]] std::vector<std::string> keys() const;

    // True when there is such an entry, be its value empty.
    [[nodiscard]] bool exist(const std::string& key) const;

  private:
    void parseLine(const std::string& line);

    std::string path;
    std::map<std::string, std::string> entries;
    bool mIsRead = false;
    bool mMayBeSaved = true;
};

// As dump().
VYN_API std::ostream& operator<<(std::ostream& stream, const IniConfig& config);

}  // namespace vyn

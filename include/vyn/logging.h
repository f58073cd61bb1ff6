// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include <vyn/export.h>
#include <vyn/logging_checks.h>
#include <vyn/logging_printf.h>

// Log lines. A statement such as
//
//     VYN_LOG_INFO << "accepted " << count << " connections";
//
// becomes one line "[file:line (function)]  text", written under the tag "VYNCore" to the system's
// log and handed to an installed LogPrinter. The operands are evaluated only when the level
// passes; a line that does not pass costs one load and one branch.
//
// Everything here may be called from any thread. Writing a line leaves errno as it was, and raises
// no SIGPIPE. A line for which there is no memory is lost, which a line of its own tells.
namespace logging {

// A level is a number; smaller is more severe.
constexpr int kLevelError = 1;
constexpr int kLevelWarning = 2;
constexpr int kLevelInfo = 3;
constexpr int kLevelDebug = 4;
constexpr int kLevelVerbose = 5;

// The tag of the library's own lines, and of the VYN_LOG macros.
constexpr char kTag[] = "VYNCore";

// Gets every written line, on the thread that wrote it. An application that shows or keeps lines
// elsewhere derives from it.
class VYN_API LogPrinter {
  public:
    virtual ~LogPrinter() = default;
    // `line` is the finished line, ended by the terminal's colour reset and a newline.
    // It must not log itself.
    virtual void print(const std::string& line) = 0;
};

// A written line in its parts, which are good until print() returns.
struct LogRecord {
    int level;                  // as the statement has it, whatever the print level
    const char* tag;            // not null
    std::string_view file;      // the source file's name, without its folders
    std::string_view function;  // the bare name
    int line;                   // in the source file
    std::string_view text;      // without blanks and line ends behind it; colours may be in it
    int64_t timeUs;             // microseconds of the wall clock since 1970 began
    int threadId;               // see currentThreadId()
};

// As LogPrinter, for who wants the parts.
class VYN_API DetailedLogPrinter {
  public:
    virtual ~DetailedLogPrinter() = default;
    // It must not log itself.
    virtual void print(const LogRecord& record) = 0;
};

// One log line: collects text as a stream, and is filtered, formatted and written by its
// destructor. Used on one thread. The macros below write the same lines, and make a message of this
// class only for those that are fatal.
class VYN_API LogMessage : public std::ostringstream {
  public:
    // `function` may be the compiler's whole signature; it is cut down to the bare name. A fatal
    // message passes every filter and, once written, ends the process (see setAborter). A message
    // that is not enabled writes nothing, and does not end the process. A null text counts as an
    // empty one, a null tag as "VYNCore"; so they do in everything here that writes a line.
    LogMessage(const char* messageTag, const char* sourceFile, const char* sourceFunction,
               int sourceLine, int messageLevel, bool isFatal, bool isEnabled);
    // A line without a source position.
    LogMessage(const char* messageTag, int messageLevel);
    ~LogMessage() override;

    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    // This message as an ordinary stream, which a temporary message needs for `<<`.
    std::ostream& stream() { return *this; }

  private:
    std::string file;
    std::string function;
    std::string tag;
    int32_t line;
    bool fatal;
    bool enabled;
    int32_t level;
};

// The letter of a level, out of "EEWIDV". `level` is 0 to 5.
VYN_API const char* getLogLevelStr(int level);

// Lines of a greater level are dropped. Starts at 5: everything passes. The value is stored
// unchecked; getLogLevel() first brings a stored value outside 1 to 5 back into that range.
VYN_API void setLogLevel(int level);
VYN_API int getLogLevel();

// Lines up to this level reach the system's log with the priority of an error. Starts at 1.
VYN_API void setLogPrintLevel(int level);

// Install a printer of either kind in the place of the one there is, or remove that with null. A
// line goes to both. They are not owned. When the call returns, no thread is in the former printer
// any more, nor will one enter it: it may be destroyed. So nothing may be held meanwhile that the
// printer waits for. Only a call from within a printer does not wait; other threads may then still
// be in it.
VYN_API void setLoggingPrinter(LogPrinter* printer);
VYN_API void setDetailedLoggingPrinter(DetailedLogPrinter* printer);

// Kept for source compatibility; does nothing.
VYN_API void setLoggingStream(std::ostream& stream);

// Replaces what happens after a fatal line was written, and gets that line; null restores the
// default, which is abort() (on a device the line also becomes the abort message). When an aborter
// returns, the code that raised the fatal message goes on as its own description says.
using Aborter = void (*)(const char* line);
VYN_API void setAborter(Aborter aborter);

// A tag of the calling thread's own. The pointer is stored, not the text: it must outlive its use.
// Null when the thread has set none.
VYN_API void setThreadLoggingTag(const char* tag);
VYN_API const char* getThreadLoggingTag();

// The calling thread's name as the kernel knows it, which keeps 15 characters.
VYN_API void setThreadName(const std::string& name);
VYN_API std::string getThreadName();

// The kernel's id of the calling thread.
VYN_API int currentThreadId();

// Monotonic milliseconds: a 32-bit value that wraps. Monotonic nanoseconds: 64 bits.
VYN_API long mtick();
VYN_API int64_t ntick();

namespace detail {
// What setLogLevel() stored.
VYN_API extern std::atomic<int> currentLevel;
}  // namespace detail

// True when a line of this level is to be written.
inline bool passes(int level) {
    return level <= detail::currentLevel.load(std::memory_order_relaxed);
}

// Logs "enter NAME" when made and "leave NAME, N ms" when destroyed, both at `level`.
class VYN_API ScopeTracer {
  public:
    // The texts are not copied; they must outlive the tracer, as literals do.
    ScopeTracer(const char* file, const char* function, int line, int level, const char* name);
    ~ScopeTracer();
    ScopeTracer(const ScopeTracer&) = delete;
    ScopeTracer& operator=(const ScopeTracer&) = delete;

  private:
    const char* mFile;
    const char* mFunction;
    int mLine;
    int mLevel;
    const char* mName;
    int64_t mStart;
};

// Logs "NAME took N ms" when destroyed, if that is more than `thresholdMs` after it was made.
class VYN_API TimerScopeTracer {
  public:
    // The texts are not copied; they must outlive the tracer, as literals do.
    TimerScopeTracer(const char* file, const char* function, int line, int level, const char* name,
                     long thresholdMs);
    ~TimerScopeTracer();
    TimerScopeTracer(const TimerScopeTracer&) = delete;
    TimerScopeTracer& operator=(const TimerScopeTracer&) = delete;

  private:
    const char* mFile;
    const char* mFunction;
    int mLine;
    int mLevel;
    const char* mName;
    long mThresholdMs;
    int64_t mStart;
};

// Streams as "[5] Input/output error. ", the form in which system errors are logged.
struct ErrnoText {
    int error;  // an errno value
};
// Streams the text, with the blank at its end.
VYN_API std::ostream& operator<<(std::ostream& stream, ErrnoText text);

namespace detail {

class LineStream;

// The line of one of the macros below: a LogMessage that is not fatal and keeps its stream for the
// thread's next line. What a manipulator leaves in a stream's own words (iword, pword) may
// therefore be found there by the next.
class VYN_API Line {
  public:
    // The texts are not copied; they must outlive the line, as literals do.
    Line(const char* tag, const char* file, const char* function, int line, int level);
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    // Takes the line's text.
    std::ostream& stream();

  private:
    void write();

    const char* mTag;
    const char* mFile;
    const char* mFunction;
    int mLine;
    int mLevel;
    int mErrno;
    LineStream* mStream;  // owned, lent by the thread
};

// Writes a line and ends the process. Aside from the functions that check something, which need no
// room for the line on their stacks then.
[[gnu::cold, gnu::noinline]] VYN_API void endWith(const char* text, const char* file,
                                                  const char* function, int line);

// When a statement last wrote its line.
class VYN_API Pace {
  public:
    constexpr Pace() = default;
    // True when that is so many milliseconds ago, or has never been; it is now then. Any thread.
    bool isDue(int ms);

  private:
    std::atomic<int64_t> mNext{INT64_MIN};  // a tick, or the least number before the first line
};

}  // namespace detail

// Lets a macro end in a stream expression and still be a statement of type void.
struct Voidify {
    // Binds less tightly than `<<` and more tightly than `?:`.
    void operator&(std::ostream&) const {}
};

}  // namespace logging

// Lines of a greater level are left out by the compiler, whatever setLogLevel() is told: 3, for
// example, leaves debug and verbose lines out. To be defined for all of a program, or in front of
// the first inclusion in a source file. Fatal lines stay.
#ifndef VYN_LOG_FLOOR
#define VYN_LOG_FLOOR 5
#endif

// One line, where a condition holds besides.
#define VYN_LOG_TAGGED_IF(tag, level, condition)                                           \
    !((level) <= VYN_LOG_FLOOR && ::logging::passes(level) && (condition))                 \
        ? static_cast<void>(0)                                                             \
        : ::logging::Voidify() &                                                           \
              ::logging::detail::Line(tag, __FILE__, __PRETTY_FUNCTION__, __LINE__, level) \
                  .stream()

// One line at a level, which should be a constant as it is looked at more than once, under a tag:
// VYN_LOG_TAGGED("Audio", logging::kLevelInfo) << "ready";
#define VYN_LOG_TAGGED(tag, level) VYN_LOG_TAGGED_IF(tag, level, true)

// One line under the tag "VYNCore", if the condition holds, which is looked at only when the level
// passes: VYN_LOG_IF(logging::kLevelWarning, queued > 90) << queued << " are queued";
#define VYN_LOG_IF(level, condition) VYN_LOG_TAGGED_IF(::logging::kTag, level, condition)

// One line from this statement in so many milliseconds, whichever thread comes first; the others
// are dropped: VYN_LOG_EVERY_MS(logging::kLevelError, 1000) << "still no answer";
#define VYN_LOG_EVERY_MS(level, ms)                        \
    VYN_LOG_IF(level,                                      \
               []() -> ::logging::detail::Pace& {          \
                   static ::logging::detail::Pace vynPace; \
                   return vynPace;                         \
               }()                                         \
                           .isDue(ms))

// One line at this level under the tag "VYNCore": VYN_LOG_INFO << "ready";
#define VYN_LOG_ERROR VYN_LOG_TAGGED(::logging::kTag, ::logging::kLevelError)
#define VYN_LOG_WARNING VYN_LOG_TAGGED(::logging::kTag, ::logging::kLevelWarning)
#define VYN_LOG_INFO VYN_LOG_TAGGED(::logging::kTag, ::logging::kLevelInfo)
#define VYN_LOG_DEBUG VYN_LOG_TAGGED(::logging::kTag, ::logging::kLevelDebug)
#define VYN_LOG_VERBOSE VYN_LOG_TAGGED(::logging::kTag, ::logging::kLevelVerbose)

// The same, led by the text of errno: "[2] No such file or directory. ".
#define VYN_LOG_ERRNO_ERROR \
    VYN_LOG_ERROR << ::logging::ErrnoText { errno }
#define VYN_LOG_ERRNO_INFO \
    VYN_LOG_INFO << ::logging::ErrnoText { errno }

// A line that ends the process.
#define VYN_LOG_FATAL                                                               \
    ::logging::LogMessage(::logging::kTag, __FILE__, __PRETTY_FUNCTION__, __LINE__, \
                          ::logging::kLevelError, true, true)                       \
        .stream()

// The line of a failed check; `condition` is its text.
#define VYN_CHECK_FAILURE(condition) VYN_LOG_FATAL << "Check failed. (" << (condition) << ") "

// An invariant: when it does not hold, the line "Check failed. (CONDITION) " and what is streamed
// behind it are written and the process ends. VYN_CHECK(size > 0) << "size is " << size;
#define VYN_CHECK(condition) \
    (condition) ? static_cast<void>(0) : ::logging::Voidify() & VYN_CHECK_FAILURE(#condition)

// The same for the comparison of two values, each looked at once, which are shown as well: "Check
// failed. (size == 4) (3 vs. 4) ". VYN_CHECK_EQ(size, 4) << "after " << name;
#define VYN_CHECK_EQ(a, b) VYN_CHECK_COMPARED(std::equal_to<>, a, b, #a " == " #b)
#define VYN_CHECK_NE(a, b) VYN_CHECK_COMPARED(std::not_equal_to<>, a, b, #a " != " #b)
#define VYN_CHECK_LT(a, b) VYN_CHECK_COMPARED(std::less<>, a, b, #a " < " #b)
#define VYN_CHECK_LE(a, b) VYN_CHECK_COMPARED(std::less_equal<>, a, b, #a " <= " #b)
#define VYN_CHECK_GT(a, b) VYN_CHECK_COMPARED(std::greater<>, a, b, #a " > " #b)
#define VYN_CHECK_GE(a, b) VYN_CHECK_COMPARED(std::greater_equal<>, a, b, #a " >= " #b)

// A loop of one turn: unlike an `if` it leaves an `else` behind the statement to whom it belongs.
#define VYN_CHECK_COMPARED(comparison, a, b, text)                                      \
    for (auto vynMismatch = ::logging::detail::mismatch<comparison>(a, b); vynMismatch; \
         vynMismatch.reset())                                                           \
    ::logging::Voidify() & VYN_CHECK_FAILURE(text) << *vynMismatch

// The same for functions that go on when the process does not end (see setAborter): they return, or
// return a value.
#define VYN_CHECK_OR_RETURN(condition)    \
    do {                                  \
        if (!(condition)) {               \
            VYN_END_ON_CHECK(#condition); \
            return;                       \
        }                                 \
    } while (false)
#define VYN_CHECK_OR_RETURN_VALUE(condition, value) \
    do {                                            \
        if (!(condition)) {                         \
            VYN_END_ON_CHECK(#condition);           \
            return value;                           \
        }                                           \
    } while (false)
#define VYN_END_ON_CHECK(text) \
    ::logging::detail::endWith("Check failed. (" text ") ", __FILE__, __PRETTY_FUNCTION__, __LINE__)

// One word out of two, of which macros are expanded first.
#define VYN_CONCATENATE_INNER(a, b) a##b
#define VYN_CONCATENATE(a, b) VYN_CONCATENATE_INNER(a, b)

// Trace the enclosing scope: at debug level, or only when it takes more than `thresholdMs`.
#define VYN_TRACE_SCOPE(name)                                         \
    ::logging::ScopeTracer VYN_CONCATENATE(vynScopeTracer, __LINE__)( \
        __FILE__, __PRETTY_FUNCTION__, __LINE__, ::logging::kLevelDebug, name)
#define VYN_TRACE_SLOW_SCOPE(name, thresholdMs)                            \
    ::logging::TimerScopeTracer VYN_CONCATENATE(vynScopeTracer, __LINE__)( \
        __FILE__, __PRETTY_FUNCTION__, __LINE__, ::logging::kLevelWarning, name, thresholdMs)

// The four printf-style message functions and the logging assertions. Every message goes to one
// replaceable sink; the default writes errors and warnings to stderr, information and debug text to
// stdout. The functions may be called from any thread.
#pragma once

#include <atomic>
#include <cstdarg>
#include <functional>
#include <string>

enum class MsgLevel { Error, Warning, Info, Debug };

using MessageSink = std::function<void(MsgLevel, std::string const&)>;

// Installs a sink and returns the one it replaces; an empty sink restores the default.
MessageSink setMessageSink(MessageSink sink);

void errorMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));
void warningMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));
void infoMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));
void debugMsg(char const* format, ...) __attribute__((format(printf, 1, 2)));
void vMessage(MsgLevel level, char const* format, va_list args);

// Report a failed assertion of the library: a null result or a false condition at a named place.
void logNull(char const* function, char const* file, unsigned int line);
void logFalse(char const* function, char const* file, unsigned int line);

template <class T>
T* logIfNull(T* value, char const* function, char const* file, unsigned int line) {
    if (value == nullptr) logNull(function, file, line);
    return value;
}

inline bool logIfFalse(bool condition, char const* function, char const* file, unsigned int line) {
    if (!condition) logFalse(function, file, line);
    return condition;
}

// Limits how often a recurring message is issued: the first `burst` calls of `allow()` pass, and
// after that one call in every `every`.
class MsgClamp {
public:
    explicit MsgClamp(unsigned int burst = 10, unsigned int every = 1000) : m_burst(burst), m_every(every) {}
    bool allow();
    unsigned long count() const { return m_count.load(); }

private:
    unsigned int m_burst;
    unsigned int m_every;
    std::atomic<unsigned long> m_count{0};
};

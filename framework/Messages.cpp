#include "framework/Messages.h"

#include <cstdio>
#include <mutex>
#include <vector>

namespace {

std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}

MessageSink& currentSink() {
    static MessageSink sink;
    return sink;
}

void defaultSink(MsgLevel level, std::string const& text) {
    FILE* out = (level == MsgLevel::Error || level == MsgLevel::Warning) ? stderr : stdout;
    fputs(text.c_str(), out);
    if (out == stderr) fflush(out);
}

}  // namespace

MessageSink setMessageSink(MessageSink sink) {
    std::lock_guard<std::mutex> lock(sinkMutex());
    MessageSink old = std::move(currentSink());
    currentSink() = std::move(sink);
    return old;
}

void vMessage(MsgLevel level, char const* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text;
    if (n > 0) {
        std::vector<char> buffer(static_cast<size_t>(n) + 1);
        vsnprintf(buffer.data(), buffer.size(), format, args);
        text.assign(buffer.data(), static_cast<size_t>(n));
    }
    std::lock_guard<std::mutex> lock(sinkMutex());
    if (currentSink())
        currentSink()(level, text);
    else
        defaultSink(level, text);
}

#define QT_DEFINE_MESSAGE(name, level)        \
    void name(char const* format, ...) {      \
        va_list args;                         \
        va_start(args, format);               \
        vMessage(level, format, args);        \
        va_end(args);                         \
    }

QT_DEFINE_MESSAGE(errorMsg, MsgLevel::Error)
QT_DEFINE_MESSAGE(warningMsg, MsgLevel::Warning)
QT_DEFINE_MESSAGE(infoMsg, MsgLevel::Info)
QT_DEFINE_MESSAGE(debugMsg, MsgLevel::Debug)

void logNull(char const* function, char const* file, unsigned int line) {
    errorMsg("%s: unexpected null at %s:%u\n", function, file, line);
}

void logFalse(char const* function, char const* file, unsigned int line) {
    errorMsg("%s: check failed at %s:%u\n", function, file, line);
}

bool MsgClamp::allow() {
    unsigned long n = m_count.fetch_add(1);
    if (n < m_burst) return true;
    return m_every != 0 && (n - m_burst) % m_every == 0;
}

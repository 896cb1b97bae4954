#include "quicktime/refs/QtParsedPath.h"

#include <cctype>
#include <cstring>

#include "framework/FormatStr.h"

OsEnvType getOsEnv() { return OsEnvUnix; }

namespace {

bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool equalIgnoringAsciiCase(std::string const& a, std::string const& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (tolower(static_cast<unsigned char>(a[i])) != tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

}  // namespace

QtParsedPath::QtParsedPath(char const* path, OsEnvType env) {
    if (!path) return;
    char const* p = path;
    std::string elem;
    switch (env) {
        case OsEnvColon:
            p = parseElem(p, env, elem);
            m_root = elem;
            break;
        case OsEnvUnix:
        case OsEnvMacOSX:
            if (*p == '/')
                ++p;
            else
                m_relative = 1;
            break;
        case OsEnvDrive:
            if (isLetter(p[0]) && p[1] == ':') {
                m_root = std::string(1, p[0]);
                m_hasDrive = 1;
                p += 2;
            } else if ((p[0] == '/' && p[1] == '/') || (p[0] == '\\' && p[1] == '\\')) {
                std::string server;
                p = parseElem(p + 2, env, server);
                m_root = std::string(path, 2) + server;
            } else {
                m_relative = 1;
            }
            break;
    }
    while (*p) {
        p = parseElem(p, env, elem);
        if (!elem.empty()) m_elems.push_back(elem);
    }
}

bool QtParsedPath::isSeparator(char c, OsEnvType env) {
    switch (env) {
        case OsEnvDrive:
            return c == '/' || c == '\\';
        case OsEnvColon:
            return c == ':';
        default:
            return c == '/';
    }
}

char const* QtParsedPath::parseElem(char const* p, OsEnvType env, std::string& elem) {
    while (*p && isSeparator(*p, env)) ++p;
    char const* start = p;
    while (*p && !isSeparator(*p, env)) ++p;
    elem.assign(start, p);
    // Doubled slashes are tolerated in every convention, as in "dir//file".
    while (*p == '/') ++p;
    return p;
}

bool QtParsedPath::elemEqual(unsigned int i, QtParsedPath const& other, OsEnvType env) const {
    if (i >= m_elems.size() || i >= other.m_elems.size()) return false;
    std::string const& mine = m_elems[i];
    std::string const& theirs = other.m_elems[i];
    if (mine == theirs) return true;
    return (env == OsEnvDrive || env == OsEnvColon) && equalIgnoringAsciiCase(mine, theirs);
}

char const* QtParsedPath::getSeparator(OsEnvType env) { return env == OsEnvColon ? ":" : "/"; }

void QtParsedPath::setRoot(char const* root, bool hasDrive) {
    m_root = root ? root : "NONAME";
    m_hasDrive = hasDrive ? 1 : 0;
    if (hasDrive) m_relative = 0;
}

std::string QtParsedPath::renderStart(OsEnvType env) const {
    switch (env) {
        case OsEnvColon:
            return m_root;
        case OsEnvDrive:
            if (m_relative) return ".";
            if (m_root.compare(0, 2, "//") == 0 || m_root.compare(0, 2, "\\\\") == 0) return m_root;
            return m_root + ":";
        default:
            // A slash path has no root of its own: an absolute one starts with its first separator.
            return m_relative ? "." : std::string();
    }
}

AutoPtr<char> QtParsedPath::getPath(OsEnvType env, unsigned int skipLast) const {
    std::string text = renderStart(env);
    char const* separator = getSeparator(env);
    size_t count = skipLast < m_elems.size() ? m_elems.size() - skipLast : 0;
    for (size_t i = 0; i < count; ++i) text.append(separator).append(m_elems[i]);
    return copyText(text.c_str());
}

AutoPtr<char> QtParsedPath::getPathTail(OsEnvType env, unsigned int n) const {
    std::string text;
    char const* separator = getSeparator(env);
    size_t count = n < m_elems.size() ? n : m_elems.size();
    for (size_t i = m_elems.size() - count; i < m_elems.size(); ++i)
        text.append(separator).append(m_elems[i]);
    return copyText(text.c_str());
}

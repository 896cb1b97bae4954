// QtParsedPath: a path split into a root and its elements under one of four path conventions, so
// that alias records can compare the movie's path with a media path element by element and render
// stored paths for the running system. OsEnvType names the conventions; getOsEnv() gives the one of
// the running system.
#pragma once

#include <string>
#include <vector>

#include "framework/AutoPtr.h"

// Path conventions. Drive: drive letters, "//server" and "\\server" roots, '/' or '\' separators.
// Unix and MacOSX: '/' separators, a leading '/' makes the path absolute. Colon: ':' separators,
// the first element is the volume.
enum OsEnvType {
    OsEnvDrive = 0,
    OsEnvUnix = 1,
    OsEnvMacOSX = 2,
    OsEnvColon = 3,
};

// The convention of the running system (OsEnvUnix).
OsEnvType getOsEnv();

class QtParsedPath {
  public:
    // Parses `path` (null gives an empty path) under `env`.
    QtParsedPath(char const* path, OsEnvType env);

    // True when element i is the same in both paths; conventions whose file systems ignore case
    // (Drive, Colon) also accept a match that differs only in ASCII case. False when either path
    // has no element i.
    bool elemEqual(unsigned int i, QtParsedPath const& other, OsEnvType env) const;

    // The path rendered under `env`, without its last `skipLast` elements.
    AutoPtr<char> getPath(OsEnvType env, unsigned int skipLast = 0) const;
    // The last n elements (all when there are fewer), each preceded by the separator; empty when
    // the path has no elements.
    AutoPtr<char> getPathTail(OsEnvType env, unsigned int n) const;
    // The separator written between elements under `env`.
    static char const* getSeparator(OsEnvType env);

    char const* getRoot() const { return m_root.c_str(); }
    // Replaces the root; with `hasDrive` the root is a drive letter, rendered as "X:" under the
    // drive-letter convention (slash conventions render no root).
    void setRoot(char const* root, bool hasDrive);
    unsigned int getElemCount() const { return static_cast<unsigned int>(m_elems.size()); }
    char const* getElem(unsigned int i) const { return i < m_elems.size() ? m_elems[i].c_str() : nullptr; }
    bool hasDrive() const { return m_hasDrive != 0; }
    bool isRelative() const { return m_relative != 0; }

  private:
    // Reads one element at `p` under `env` into `elem` and returns where scanning goes on.
    static char const* parseElem(char const* p, OsEnvType env, std::string& elem);
    static bool isSeparator(char c, OsEnvType env);
    std::string renderStart(OsEnvType env) const;

    std::string m_root{"NONAME"};  // "NONAME" when the path names no root
    std::vector<std::string> m_elems;
    unsigned char m_hasDrive = 0;
    unsigned char m_relative = 0;
};

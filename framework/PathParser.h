// PathParser: splits a file path of this system ('/' separators) into its directory, file name,
// prefix (the name without its last extension), extension and elements, and normalises it: `reroot`
// makes it absolute and resolves "." and "..", `getPath(osEnv)` renders the elements in one of the
// path conventions. Data references and sample descriptions both normalise paths this way
// (parse, reroot, getPath(1)) so that the same file always yields the same string.
#pragma once

#include <string>
#include <vector>

class PathParser {
  public:
    PathParser() = default;
    explicit PathParser(char const* path) { parse(path); }
    void parse(char const* path);

    // The path as given to parse, or as normalised by reroot/trimTail.
    char const* getPath() const { return m_path.c_str(); }
    char const* getDirectory() const { return m_directory.c_str(); }
    char const* getName() const { return m_name.c_str(); }
    char const* getPrefix() const { return m_prefix.c_str(); }
    char const* getExtension() const { return m_extension.c_str(); }

    // Makes a relative path absolute below `base` (the current directory when null) and resolves
    // "." and ".." elements. This is textual: symbolic links are not followed, since the file a
    // recording points at may not exist yet. ".." at the root stays at the root. False (path
    // unchanged) only when the current directory cannot be read.
    bool reroot(char const* base = nullptr);

    // Drops the last n elements; an absolute path stops at its root. False when there were fewer
    // than n elements (the path is then as short as it can get).
    bool trimTail(unsigned int n);

    // The elements rendered in a path convention: 3 is the colon form whose first element is the
    // volume (a relative path starts with ':'); every other value gives the '/' form, "/" alone for
    // the root and "." for an empty relative path.
    std::string getPath(unsigned int osEnv) const;

    bool isAbsolute() const { return m_absolute; }
    unsigned int getElemCount() const { return static_cast<unsigned int>(m_elems.size()); }
    char const* getElem(unsigned int i) const { return i < m_elems.size() ? m_elems[i].c_str() : nullptr; }

  private:
    void splitName();
    void splitElems();
    // Re-renders m_path from the elements after they changed, and the name parts with it.
    void rebuild();

    std::string m_path;
    std::string m_directory;
    std::string m_name;
    std::string m_prefix;
    std::string m_extension;
    std::vector<std::string> m_elems;  // non-empty path components, in order
    bool m_absolute = false;
};

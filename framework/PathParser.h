// PathParser: splits a file path into its directory, file name, prefix (the name without its last
// extension) and extension. Paths use '/' as the separator.
#pragma once

#include <string>

class PathParser {
public:
    PathParser() = default;
    explicit PathParser(char const* path) { parse(path); }
    void parse(char const* path);

    char const* getPath() const { return m_path.c_str(); }
    char const* getDirectory() const { return m_directory.c_str(); }
    char const* getName() const { return m_name.c_str(); }
    char const* getPrefix() const { return m_prefix.c_str(); }
    char const* getExtension() const { return m_extension.c_str(); }

private:
    std::string m_path;
    std::string m_directory;
    std::string m_name;
    std::string m_prefix;
    std::string m_extension;
};

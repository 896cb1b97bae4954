#include "framework/PathParser.h"

void PathParser::parse(char const* path) {
    m_path = path ? path : "";
    size_t slash = m_path.rfind('/');
    m_directory = slash == std::string::npos ? std::string() : m_path.substr(0, slash + 1);
    m_name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
    // A leading dot starts a hidden name, not an extension ("._movie" has no extension).
    size_t dot = m_name.rfind('.');
    if (dot == std::string::npos || dot == 0 || (dot == 1 && m_name[0] == '.')) {
        m_prefix = m_name;
        m_extension.clear();
    } else {
        m_prefix = m_name.substr(0, dot);
        m_extension = m_name.substr(dot + 1);
    }
}

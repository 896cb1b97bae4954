#include "framework/PathParser.h"

#include <unistd.h>

#include <climits>

void PathParser::parse(char const* path) {
    m_path = path ? path : "";
    splitName();
    splitElems();
}

void PathParser::splitName() {
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

void PathParser::splitElems() {
    m_elems.clear();
    m_absolute = !m_path.empty() && m_path[0] == '/';
    size_t pos = 0;
    while (pos < m_path.size()) {
        size_t slash = m_path.find('/', pos);
        if (slash == std::string::npos) slash = m_path.size();
        if (slash > pos) m_elems.push_back(m_path.substr(pos, slash - pos));
        pos = slash + 1;
    }
}

bool PathParser::reroot(char const* base) {
    std::vector<std::string> input;
    if (!m_absolute) {
        std::string baseText;
        if (base) {
            baseText = base;
        } else {
            char cwd[PATH_MAX];
            if (!getcwd(cwd, sizeof cwd)) return false;
            baseText = cwd;
        }
        PathParser baseParsed(baseText.c_str());
        // A relative base is itself taken from the current directory first.
        if (!baseParsed.isAbsolute() && !baseParsed.reroot()) return false;
        input = baseParsed.m_elems;
    }
    input.insert(input.end(), m_elems.begin(), m_elems.end());
    m_elems.clear();
    for (std::string& elem : input) {
        if (elem == ".") continue;
        if (elem == "..") {
            if (!m_elems.empty()) m_elems.pop_back();
            continue;
        }
        m_elems.push_back(std::move(elem));
    }
    m_absolute = true;
    rebuild();
    return true;
}

bool PathParser::trimTail(unsigned int n) {
    bool enough = n <= m_elems.size();
    m_elems.resize(enough ? m_elems.size() - n : 0);
    rebuild();
    return enough;
}

std::string PathParser::getPath(unsigned int osEnv) const {
    bool colon = osEnv == 3;
    char separator = colon ? ':' : '/';
    std::string text;
    // Slash form: a leading separator marks an absolute path. Colon form: the leading element is
    // the volume, so it is a relative path that starts with the separator.
    if (colon ? !m_absolute : m_absolute) text += separator;
    for (size_t i = 0; i < m_elems.size(); ++i) {
        if (i > 0) text += separator;
        text += m_elems[i];
    }
    if (text.empty()) text = colon ? ":" : ".";
    return text;
}

void PathParser::rebuild() {
    m_path = getPath(1);
    splitName();
}

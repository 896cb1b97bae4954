// The folders stack one way: framework/ at the bottom, then the atom core, the sample tables, the
// references, the descriptions and the layout, then the recorder, the top of quicktime/ (the
// factory's table and the umbrella header) and the tool. A source may include its own folder and
// the folders below it; this test reads every #include of the sources and names each that points up.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The folders from the bottom up; a folder not listed here is not ranked.
std::vector<std::string> const kStack = {
    "framework",           "quicktime/atoms",    "quicktime/tables", "quicktime/refs",
    "quicktime/descriptions", "quicktime/layout", "quicktime/recorder", "quicktime", "tools/qtmovie"};

// The rank of the folder that holds `path` (relative to the source root), or -1.
int rankOf(std::string const& path) {
    std::string folder = fs::path(path).parent_path().generic_string();
    for (size_t i = 0; i < kStack.size(); ++i)
        if (folder == kStack[i]) return static_cast<int>(i);
    return -1;
}

// The project includes of a source: the text between the quotes of `#include "..."`.
std::vector<std::string> includesOf(fs::path const& file) {
    std::vector<std::string> found;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        size_t at = line.find_first_not_of(" \t");
        if (at == std::string::npos || line.compare(at, 8, "#include") != 0) continue;
        size_t open = line.find('"', at);
        size_t close = open == std::string::npos ? open : line.find('"', open + 1);
        if (close != std::string::npos) found.push_back(line.substr(open + 1, close - open - 1));
    }
    return found;
}

}  // namespace

TEST(Dependencies, NoIncludePointsUpTheStack) {
    fs::path root = QT_SOURCE_DIR;
    unsigned int sources = 0;
    for (char const* top : {"framework", "quicktime", "tools"}) {
        for (auto const& entry : fs::recursive_directory_iterator(root / top)) {
            std::string ext = entry.path().extension().string();
            if (!entry.is_regular_file() || (ext != ".h" && ext != ".cpp")) continue;
            std::string source = fs::relative(entry.path(), root).generic_string();
            int from = rankOf(source);
            ASSERT_GE(from, 0) << source << " is in a folder the stack does not name";
            ++sources;
            for (std::string const& include : includesOf(entry.path())) {
                int to = rankOf(include);
                if (to < 0) continue;  // a file of the same folder named without its path
                EXPECT_LE(to, from) << source << " includes " << include << ", above it";
            }
        }
    }
    EXPECT_GT(sources, 100u);
}

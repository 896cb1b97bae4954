// Fuzz driver for the reader and writer: reads arbitrary bytes as a movie, prints the tree and
// copies it. Built with libFuzzer (clang -fsanitize=fuzzer -DQT_LIBFUZZER) it is a fuzz target;
// otherwise it is a program that runs the same steps on each file named on its command line.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "quicktime/quicktime.h"

namespace {

void showTree(BaseQtAtom const* atom) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        child->show();
        showTree(child);
    }
}

void runOne(char const* path) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path);
    if (!root) return;
    showTree(root.get());
    std::string copy = std::string(path) + ".copy";
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    if (out) QtAtomWriter::copyTree(*root, *out);
    unlink(copy.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static bool quiet = [] {
        setMessageSink([](MsgLevel, std::string const&) {});
        return true;
    }();
    (void)quiet;
    char path[] = "/tmp/qtfuzz.XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) return 0;
    if (write(fd, data, size) != static_cast<ssize_t>(size)) size = 0;
    close(fd);
    runOne(path);
    unlink(path);
    return 0;
}

#ifndef QT_LIBFUZZER
int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) runOne(argv[i]);
    return 0;
}
#endif

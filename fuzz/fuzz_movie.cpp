// Fuzz target: any bytes as a movie file, through everything qtmovie does with one (dump, info,
// samples, check, copy), then every track's samples walked in order and looked up at random.
#include <string>
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "tools/qtmovie/QtMovieCommand.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    fuzz::TempInput input(data, size);
    std::string const& path = input.path();
    std::string copy = path + ".copy";
    std::vector<std::vector<std::string>> runs = {{"dump", path},
                                                  {"info", path},
                                                  {"info", path, "--json"},
                                                  {"samples", path, "--count", "4096"},
                                                  {"check", path},
                                                  {"copy", path, copy}};
    for (auto const& run : runs) {
        QtMovieCommand const* command = QtMovieCommand::find(run[0]);
        if (command) command->run(std::vector<std::string>(run.begin() + 1, run.end()));
    }
    unlink(copy.c_str());
    fuzz::walkSamples(path, data, size);
    return 0;
}

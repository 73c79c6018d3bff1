#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quorbel {

/// What came of a program that reads its standard input and writes its standard output.
struct CFilterRun {
    int error = 0;   ///< an errno value when it could not be started
    int status = 0;  ///< as wait(2) gives it
    std::string output;
    std::string complaints;  ///< the beginning of its standard error
    bool isTooMuch = false;  ///< it had more output than was taken
};

/// Runs a program to its end, with `input` as its standard input and no other open file of this process than
/// its pipes; takes at most `mostOutput` bytes. words[0] is its path.
CFilterRun RunFilter(std::vector<std::string> words, int input, std::size_t mostOutput);

}  // namespace quorbel

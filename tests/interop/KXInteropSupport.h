#pragma once
// What the interoperability tests share: running the tools, and libsndfile as the reference reader.

#include <sndfile.h>

#include <string>
#include <vector>

namespace KXInterop {

// Runs a shell command quietly; true when it succeeded.
bool run(const std::string& command);
std::string quoted(const std::string& path);
// What a shell command prints on its standard output, without the last line end.
std::string output(const std::string& command);

// What libsndfile makes of a file: its description and every sample as a normalised float.
struct Reference {
    SF_INFO info{};
    std::vector<float> samples;  // interleaved
};
Reference readWithLibsndfile(const std::string& path);

// The file opens with libsndfile's channel count, rate and length, and every sample equals
// libsndfile's bit for bit — libsndfile reading `referencePath`, a file of the same samples, when
// it misreads `path` itself.
void expectSameAsLibsndfile(const std::string& path, const std::string& referencePath = {});

}  // namespace KXInterop

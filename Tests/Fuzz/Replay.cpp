// Runs a fuzz target on files that are there already, for compilers without a fuzzer.

#include "Fuzz/FuzzInput.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{

int Replay(const std::filesystem::path& aFile)
{
    std::ifstream lStream(aFile, std::ios::binary);
    const std::vector<char> lBytes{std::istreambuf_iterator<char>(lStream), std::istreambuf_iterator<char>()};
    std::printf("%s, %zu bytes\n", aFile.filename().string().c_str(), lBytes.size());
    std::fflush(stdout); // the name of the file that ends the process must be there
    // A copy of exactly that size: what reads beyond the input is found out.
    const std::vector<uint8_t> lInput(lBytes.begin(), lBytes.end());
    return LLVMFuzzerTestOneInput(lInput.data(), lInput.size());
}

} // namespace

int main(int aCount, char** aArguments)
{
    int lFiles = 0;
    for (int lArgument = 1; lArgument < aCount; ++lArgument)
    {
        for (const auto& lEntry : std::filesystem::directory_iterator(aArguments[lArgument]))
        {
            if (Replay(lEntry.path()) != 0)
            {
                return 1;
            }
            ++lFiles;
        }
    }
    std::printf("%d inputs\n", lFiles);
    return lFiles > 0 ? 0 : 1; // an empty folder is a mistake
}

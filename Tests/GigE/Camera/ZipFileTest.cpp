#include "Simulator/Network/ZipFile.h"

#include "Adapters/GigE/Evaluator/Unzip.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

constexpr size_t cLargestContent = size_t{1} << 21U;

/// Bytes that hardly pack.
std::string Noise(size_t aSize)
{
    std::string lNoise(aSize, '\0');
    uint32_t lState = 1;
    for (char& lByte : lNoise)
    {
        lState = lState * 1664525 + 1013904223;
        lByte = static_cast<char>(lState >> 24U);
    }
    return lNoise;
}

TEST(ZipFileTest, AnArchiveGivesItsContentBack)
{
    const std::vector<std::string> lContents = {"", "x", std::string(1000000, 'a'), Noise(1), Noise(70000)};
    for (const std::string& lContent : lContents)
    {
        std::string lBack;
        EXPECT_EQ("", KyGigE::Unzip(KySimulator::MakeZip("camera.xml", lContent), cLargestContent, lBack));
        EXPECT_EQ(lContent, lBack);
    }
}

TEST(ZipFileTest, ContentIsPacked)
{
    EXPECT_GT(5000U, KySimulator::MakeZip("camera.xml", std::string(1000000, 'a')).size());
}

TEST(ZipFileTest, TheFileHasItsNameInHeaderAndDirectory)
{
    const std::string lArchive = KySimulator::MakeZip("camera.xml", "text");
    EXPECT_EQ(0U, lArchive.find("PK\x03\x04"));
    EXPECT_EQ(30U, lArchive.find("camera.xml")) << "after the header, whose size is fixed";
    const size_t lDirectory = lArchive.find("PK\x01\x02");
    ASSERT_NE(std::string::npos, lDirectory);
    EXPECT_EQ(lDirectory + 46, lArchive.rfind("camera.xml"));
    EXPECT_EQ(lArchive.size() - 22, lArchive.find("PK\x05\x06")) << "the end record has no comment";
}

} // namespace

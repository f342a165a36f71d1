// Archives, whole, strange and damaged. They are made here, so that each part can be wrong.

#include "Adapters/GigE/Evaluator/Unzip.h"

#include <gmock/gmock.h>

using KyGigE::Unzip;

namespace
{

constexpr size_t cLargest = size_t{1} << 20U;

std::string Little(uint32_t aValue, size_t aSize)
{
    std::string lBytes;
    for (size_t lByte = 0; lByte < aSize; ++lByte)
    {
        lBytes += static_cast<char>(uint64_t{aValue} >> (8 * lByte));
    }
    return lBytes;
}

uint32_t Checksum(const std::string& aText)
{
    uint32_t lSum = 0xFFFFFFFF;
    for (const char lChar : aText)
    {
        lSum ^= static_cast<uint8_t>(lChar);
        for (int lBit = 0; lBit < 8; ++lBit)
        {
            lSum = lSum >> 1U ^ ((lSum & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~lSum;
}

struct File
{
    std::string mName;
    std::string mText;
    std::string mPacked{}; ///< By method 8; empty: stored.
    uint32_t mFlags = 0;
    uint32_t mMethod = 0xFFFF; ///< Another one.
};

/// A "stored" block of deflate.
std::string Deflated(const std::string& aText)
{
    const auto lSize = static_cast<uint32_t>(aText.size());
    return '\1' + Little(lSize, 2) + Little(~lSize, 2) + aText;
}

std::string Archive(const std::vector<File>& aFiles)
{
    std::string lArchive;
    std::string lDirectory;
    for (const File& lFile : aFiles)
    {
        const std::string& lData = lFile.mPacked.empty() ? lFile.mText : lFile.mPacked;
        const uint32_t lMethod = lFile.mMethod != 0xFFFF ? lFile.mMethod : lFile.mPacked.empty() ? 0 : 8;
        const std::string lCommon = Little(20, 2) + Little(lFile.mFlags, 2) + Little(lMethod, 2) +
                                    Little(0, 4) + Little(Checksum(lFile.mText), 4) +
                                    Little(static_cast<uint32_t>(lData.size()), 4) +
                                    Little(static_cast<uint32_t>(lFile.mText.size()), 4) +
                                    Little(static_cast<uint32_t>(lFile.mName.size()), 2) + Little(0, 2);
        lDirectory += "PK\1\2" + Little(20, 2) + lCommon + Little(0, 6) + Little(0, 4) +
                      Little(static_cast<uint32_t>(lArchive.size()), 4) + lFile.mName;
        lArchive.append("PK\3\4").append(lCommon).append(lFile.mName).append(lData);
    }
    const auto lPlace = static_cast<uint32_t>(lArchive.size());
    const auto lCount = static_cast<uint32_t>(aFiles.size());
    return lArchive + lDirectory + "PK\5\6" + Little(0, 4) + Little(lCount, 2) + Little(lCount, 2) +
           Little(static_cast<uint32_t>(lDirectory.size()), 4) + Little(lPlace, 4) + Little(0, 2);
}

/// The text, or "error: ...".
std::string Unzipped(const std::string& aFile, size_t aLargest = cLargest)
{
    std::string lText = "old";
    const std::string lProblem = Unzip(aFile, aLargest, lText);
    EXPECT_TRUE(lProblem.empty() || lText.empty());
    return lProblem.empty() ? lText : "error: " + lProblem;
}

TEST(UnzipTest, WhatIsNoArchiveStaysAsItIs)
{
    EXPECT_EQ(Unzipped("<a/>"), "<a/>");
    EXPECT_EQ(Unzipped(""), "");
    EXPECT_EQ(Unzipped("P"), "P");
}

TEST(UnzipTest, ReadsStoredAndDeflatedFiles)
{
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>"}})), "<a/>");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>", Deflated("<a/>")}})), "<a/>");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", ""}})), "");
}

TEST(UnzipTest, FindsTheDescriptionAmongSeveralFiles)
{
    EXPECT_EQ(Unzipped(Archive({{"readme.txt", "no"}, {"folder/Camera.XML", "<a/>"}, {"b.xml", "<b/>"}})),
              "<a/>");
    EXPECT_EQ(Unzipped(Archive({{"folder/", ""}, {"description", "<a/>"}, {"more", "no"}})), "<a/>");
}

TEST(UnzipTest, BytesAfterTheArchiveCountForNothing)
{
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>"}}) + std::string(511, '\0')), "<a/>");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>"}}) + std::string(300'000, '\0')),
              "error: its directory makes no sense");
}

TEST(UnzipTest, RefusesWhatItCannotRead)
{
    EXPECT_EQ(Unzipped("PK"), "error: its directory makes no sense");
    EXPECT_EQ(Unzipped(Archive({})), "error: its directory makes no sense");
    EXPECT_EQ(Unzipped(Archive({{"folder/", ""}})), "error: its directory makes no sense");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>", "", 1}})),
              "error: its directory makes no sense"); // encrypted
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>", "", 0, 12}})), "error: it is packed in an unknown way");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>", Deflated("<b/>")}})), "error: its data are damaged");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>", "\7\7\7"}})), "error: its data are damaged");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>", Deflated("<a/>").substr(0, 7)}})),
              "error: its data are damaged");
}

TEST(UnzipTest, WhatGrowsTooLongIsRefusedWhateverTheArchiveSays)
{
    const std::string lLong(cLargest + 1, 'x');
    EXPECT_EQ(Unzipped(Archive({{"a.xml", lLong}})), "error: it is too long");
    EXPECT_EQ(Unzipped(Archive({{"a.xml", lLong.substr(1)}})).size(), cLargest);
    std::string lBlocks;
    for (int lBlock = 0; lBlock < 20; ++lBlock)
    {
        lBlocks += '\0' + Little(65535, 2) + Little(0, 2) + std::string(65535, 'x');
    }
    EXPECT_EQ(Unzipped(Archive({{"a.xml", "<a/>", lBlocks}})), "error: it is too long");
}

TEST(UnzipTest, EveryBeginningAndEveryDamagedByteIsSurvived)
{
    const std::string lGood = Archive({{"x", "no"}, {"a.xml", "<a>text</a>", Deflated("<a>text</a>")}});
    for (size_t lSize = 0; lSize < lGood.size(); ++lSize)
    {
        Unzipped(lGood.substr(0, lSize));
    }
    for (size_t lPlace = 2; lPlace < lGood.size(); ++lPlace)
    {
        for (const int lByte : {0x00, 0x01, 0x7F, 0x80, 0xFF})
        {
            std::string lBad = lGood;
            lBad[lPlace] = static_cast<char>(lByte);
            const std::string lText = Unzipped(lBad);
            EXPECT_TRUE(lText.rfind("error: ", 0) == 0 || lText == "<a>text</a>" || lText == "no")
                << lPlace << ' ' << lText;
        }
    }
}

} // namespace

// Whatever archive a device gives: its file is found and no longer than allowed, or there is a reason and no
// file. A file that is whole, and all of whose numbers are right, is found.

#include "Adapters/GigE/Evaluator/Unzip.h"
#include "Fuzz/FuzzInput.h"

#include <string>
#include <zlib.h>

using namespace KyTest;

namespace
{

constexpr size_t cLargest = 4096;

/// A file of the archive, and whether it is as an archiver writes it.
struct Packed
{
    std::string mName;
    std::string mText;
    std::string mBytes;
    uint32_t mMethod = 0;
    uint32_t mPlace = 0;
    bool mIsWhole = true;
};

void Put(std::string& aText, uint32_t aValue, unsigned aSize)
{
    for (unsigned lByte = 0; lByte < aSize; ++lByte)
    {
        aText += static_cast<char>(aValue >> (8U * lByte) & 0xFFU);
    }
}

std::string Deflate(const std::string& aText)
{
    z_stream lStream{};
    KY_REQUIRE(deflateInit2(&lStream, 1, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK);
    std::string lPacked(deflateBound(&lStream, static_cast<uLong>(aText.size())), '\0');
    std::string lText = aText;
    lStream.next_in = reinterpret_cast<Bytef*>(lText.data());
    lStream.avail_in = static_cast<uInt>(lText.size());
    lStream.next_out = reinterpret_cast<Bytef*>(lPacked.data());
    lStream.avail_out = static_cast<uInt>(lPacked.size());
    KY_REQUIRE(deflate(&lStream, Z_FINISH) == Z_STREAM_END);
    lPacked.resize(lPacked.size() - lStream.avail_out);
    deflateEnd(&lStream);
    return lPacked;
}

/// The right number, or one time in eight another one; the file is not whole then.
uint32_t Bend(FuzzInput& aInput, Packed& aFile, uint32_t aRight)
{
    constexpr uint32_t cWrong[] = {0, 1, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF, cLargest, cLargest + 1};
    const uint8_t lHow = aInput.TakeByte();
    if (lHow % 8U != 7)
    {
        return aRight;
    }
    const uint32_t lValue = lHow / 8U < 7 ? cWrong[lHow / 8U] : aRight + lHow / 8U - 19U;
    aFile.mIsWhole = aFile.mIsWhole && lValue == aRight;
    return lValue;
}

/// Unpacks the archive into aText. \return Whether there was no problem.
bool Check(const std::string& aArchive, std::string& aText)
{
    aText = "old";
    const std::string lProblem = KyGigE::Unzip(aArchive, cLargest, aText);
    KY_REQUIRE(lProblem.empty() || aText.empty());
    // A file that does not begin as an archive is the text itself.
    KY_REQUIRE(aArchive.compare(0, 2, "PK") != 0 ? aText == aArchive : aText.size() <= cLargest);
    return lProblem.empty();
}

Packed TakeFile(FuzzInput& aInput)
{
    constexpr const char* cNames[] = {"a.xml", "B.XML", "folder/", "readme", "", "xml", ".xml", "d/a.Xml"};
    constexpr size_t cRepeats[] = {1, 1, 16, 700};
    Packed lFile;
    lFile.mName = cNames[aInput.TakeByte() % 8U];
    const uint8_t lKind = aInput.TakeByte();
    const std::vector<uint8_t> lBytes = aInput.TakeBytes(lKind % 16U);
    for (size_t lCount = cRepeats[lKind / 16U % 4U]; lCount > 0; --lCount)
    {
        lFile.mText.append(lBytes.begin(), lBytes.end());
    }
    lFile.mMethod = lKind / 64U == 3 ? lKind : lKind / 64U == 0 ? 0U : unsigned{Z_DEFLATED};
    // Packed as an archiver packs it, or the fuzzer's bytes as they are.
    lFile.mBytes = lKind / 64U == 1 ? Deflate(lFile.mText) : lFile.mText;
    lFile.mIsWhole = lKind / 64U < 2 && lFile.mText.size() <= cLargest;
    return lFile;
}

void PutLocal(std::string& aArchive, FuzzInput& aInput, Packed& aFile)
{
    aFile.mPlace = static_cast<uint32_t>(aArchive.size());
    Put(aArchive, Bend(aInput, aFile, 0x04034B50), 4);
    aArchive.append(22, '\0'); // what the directory repeats
    Put(aArchive, Bend(aInput, aFile, static_cast<uint32_t>(aFile.mName.size())), 2);
    Put(aArchive, 0, 2);
    aArchive += aFile.mName + aFile.mBytes;
}

void PutEntry(std::string& aArchive, FuzzInput& aInput, Packed& aFile)
{
    const auto lChecksum = static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(aFile.mText.data()), static_cast<uInt>(aFile.mText.size())));
    const auto lPacked = static_cast<uint32_t>(aFile.mBytes.size());
    const auto lSize = static_cast<uint32_t>(aFile.mText.size());
    Put(aArchive, 0x02014B50, 4);
    aArchive.append(4, '\0');
    Put(aArchive, Bend(aInput, aFile, 0), 2); // flags
    Put(aArchive, aFile.mMethod, 2);
    aArchive.append(4, '\0');
    Put(aArchive, Bend(aInput, aFile, lChecksum), 4);
    Put(aArchive, Bend(aInput, aFile, lPacked), 4);
    Put(aArchive, Bend(aInput, aFile, lSize), 4);
    Put(aArchive, Bend(aInput, aFile, static_cast<uint32_t>(aFile.mName.size())), 2);
    aArchive.append(12, '\0');
    Put(aArchive, Bend(aInput, aFile, aFile.mPlace), 4);
    aArchive += aFile.mName;
}

/// An archive of one to three files. The only file of a whole archive is to be found.
void TryArchive(FuzzInput& aInput)
{
    std::string lArchive;
    std::vector<Packed> lFiles(1U + aInput.TakeByte() % 3U);
    for (Packed& lFile : lFiles)
    {
        lFile = TakeFile(aInput);
        PutLocal(lArchive, aInput, lFile);
    }
    const auto lDirectory = static_cast<uint32_t>(lArchive.size());
    for (Packed& lFile : lFiles)
    {
        PutEntry(lArchive, aInput, lFile);
    }
    Packed lEnd;
    Put(lArchive, 0x06054B50, 4);
    lArchive.append(6, '\0');
    Put(lArchive, Bend(aInput, lEnd, static_cast<uint32_t>(lFiles.size())), 2);
    Put(lArchive, static_cast<uint32_t>(lArchive.size()) - lDirectory, 4);
    Put(lArchive, Bend(aInput, lEnd, lDirectory), 4);
    Put(lArchive, 0, 2);
    std::string lText;
    const bool lUnpacked = Check(lArchive, lText);
    if (lFiles.size() == 1 && lFiles[0].mIsWhole && lEnd.mIsWhole && lFiles[0].mName != "folder/")
    {
        KY_REQUIRE(lUnpacked && lText == lFiles[0].mText);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    FuzzInput lInput(aData, aSize);
    if (lInput.TakeFlag())
    {
        TryArchive(lInput);
        return 0;
    }
    const std::vector<uint8_t> lBytes = lInput.TakeRest();
    // Without the two letters a file is no archive, and the fuzzer would have to find them each time.
    std::string lFile = "PK";
    lFile.append(lBytes.begin(), lBytes.end());
    std::string lText;
    Check(lFile, lText);
    return 0;
}

#include "Adapters/GigE/Evaluator/Unzip.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <zlib.h>

namespace KyGigE
{

namespace
{

constexpr size_t cEndSize = 22;          // of the record at an archive's end, without a comment
constexpr size_t cLongestTail = 0x20000; // in which that record is looked for: a comment, and a block's rest
constexpr size_t cDirectorySize = 46;    // of a file's entry in the directory, without names
constexpr size_t cLocalSize = 30;        // of the header before a file, without names
constexpr size_t cMostFiles = 1'000;

/// Numbers of an archive, none of which is trusted: outside it they are nothing.
class Bytes
{
public:
    explicit Bytes(std::string_view aBytes) : mBytes(aBytes) {}

    bool Has(size_t aPlace, size_t aSize) const
    {
        return aPlace <= mBytes.size() && aSize <= mBytes.size() - aPlace;
    }
    uint32_t Get(size_t aPlace, size_t aSize) const
    {
        uint32_t lValue = 0;
        for (size_t lByte = Has(aPlace, aSize) ? aSize : 0; lByte > 0; --lByte)
        {
            lValue = lValue << 8U | static_cast<uint8_t>(mBytes[aPlace + lByte - 1]);
        }
        return lValue;
    }
    uint32_t Get2(size_t aPlace) const { return Get(aPlace, 2); }
    uint32_t Get4(size_t aPlace) const { return Get(aPlace, 4); }
    std::string_view Cut(size_t aPlace, size_t aSize) const
    {
        return Has(aPlace, aSize) ? mBytes.substr(aPlace, aSize) : std::string_view();
    }
    size_t GetSize() const { return mBytes.size(); }

private:
    const std::string_view mBytes;
};

/// A file as the directory has it.
struct Member
{
    uint32_t mFlags = 0;
    uint32_t mMethod = 0;
    uint32_t mChecksum = 0;
    uint32_t mPacked = 0;
    uint32_t mSize = 0;
    uint32_t mPlace = 0;
};

bool IsXml(std::string_view aName)
{
    constexpr std::string_view cEnding = ".xml";
    return aName.size() >= cEnding.size() &&
           std::equal(
               cEnding.begin(), cEnding.end(), aName.end() - static_cast<ptrdiff_t>(cEnding.size()),
               [](char aExpected, char aFound)
               { return aExpected == (aFound >= 'A' && aFound <= 'Z' ? aFound + ('a' - 'A') : aFound); });
}

/// The place of the record at the end.
std::optional<size_t> FindEnd(const Bytes& aArchive)
{
    const size_t lSize = aArchive.GetSize();
    const size_t lFirst = lSize > cLongestTail ? lSize - cLongestTail : 0;
    // From the end: the bytes of the mark may also be in a packed file.
    for (size_t lPlace = lSize; lPlace-- > lFirst;)
    {
        if (aArchive.Get4(lPlace) == 0x06054B50 && aArchive.Has(lPlace, cEndSize))
        {
            return lPlace;
        }
    }
    return std::nullopt;
}

std::optional<Member> FindMember(const Bytes& aArchive)
{
    const std::optional<size_t> lEnd = FindEnd(aArchive);
    // The count is the device's word: a loop over it is limited, and each entry is checked against the end.
    const size_t lCount = lEnd ? std::min<size_t>(aArchive.Get2(*lEnd + 10), cMostFiles) : 0;
    size_t lPlace = lEnd ? aArchive.Get4(*lEnd + 16) : 0;
    std::optional<Member> lFirst;
    for (size_t lIndex = 0; lIndex < lCount; ++lIndex)
    {
        if (!aArchive.Has(lPlace, cDirectorySize) || aArchive.Get4(lPlace) != 0x02014B50)
        {
            break;
        }
        const Member lMember{aArchive.Get2(lPlace + 8),  aArchive.Get2(lPlace + 10),
                             aArchive.Get4(lPlace + 16), aArchive.Get4(lPlace + 20),
                             aArchive.Get4(lPlace + 24), aArchive.Get4(lPlace + 42)};
        const size_t lNameSize = aArchive.Get2(lPlace + 28);
        const std::string_view lName = aArchive.Cut(lPlace + cDirectorySize, lNameSize);
        // The first file that is called .xml, else the first file at all.
        if (IsXml(lName))
        {
            return lMember;
        }
        const bool lFolder = !lName.empty() && lName.back() == '/';
        lFirst = lFirst || lFolder ? lFirst : lMember;
        lPlace += cDirectorySize + lNameSize + aArchive.Get2(lPlace + 30) + aArchive.Get2(lPlace + 32);
    }
    return lFirst;
}

/// \return Empty, or what is wrong.
std::string Inflate(std::string_view aPacked, size_t aLargest, std::string& aText)
{
    constexpr size_t cStep = size_t{256} << 10U;
    z_stream lStream{};
    if (inflateInit2(&lStream, -MAX_WBITS) != Z_OK) // without a header of zlib's own
    {
        return "there is no memory for it";
    }
    // zlib does not write there.
    lStream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(aPacked.data()));
    lStream.avail_in = static_cast<uInt>(aPacked.size());
    int lResult = Z_OK;
    while (lResult == Z_OK && aText.size() <= aLargest)
    {
        const size_t lSize = aText.size();
        const size_t lStep = std::min(cStep, aLargest + 1 - lSize); // one byte more shows that it is too long
        aText.resize(lSize + lStep);
        lStream.next_out = reinterpret_cast<Bytef*>(aText.data() + lSize);
        lStream.avail_out = static_cast<uInt>(lStep);
        lResult = inflate(&lStream, Z_NO_FLUSH);
        aText.resize(lSize + lStep - lStream.avail_out);
        if (lResult == Z_OK && lStream.avail_in == 0 && lStream.avail_out != 0)
        {
            break; // the rest is missing
        }
    }
    inflateEnd(&lStream);
    return aText.size() > aLargest ? "it is too long" : lResult == Z_STREAM_END ? "" : "its data are damaged";
}

std::string Unpack(const Bytes& aArchive, const Member& aMember, size_t aLargest, std::string& aText)
{
    // Bit 0: the file is encrypted.
    if ((aMember.mFlags & 1U) != 0 || aArchive.Get4(aMember.mPlace) != 0x04034B50)
    {
        return "its directory makes no sense";
    }
    const size_t lData = size_t{aMember.mPlace} + cLocalSize + aArchive.Get2(size_t{aMember.mPlace} + 26) +
                         aArchive.Get2(size_t{aMember.mPlace} + 28);
    if (!aArchive.Has(lData, aMember.mPacked))
    {
        return "its directory makes no sense";
    }
    const std::string_view lPacked = aArchive.Cut(lData, aMember.mPacked);
    if (aMember.mMethod != Z_DEFLATED && aMember.mMethod != 0)
    {
        return "it is packed in an unknown way";
    }
    // Checked before anything is unpacked. A packed file may still lie about its size, so Inflate() checks again.
    if (aMember.mSize > aLargest || (aMember.mMethod == 0 && lPacked.size() > aLargest))
    {
        return "it is too long";
    }
    if (aMember.mMethod == 0)
    {
        aText.assign(lPacked);
    }
    else if (std::string lProblem = Inflate(lPacked, aLargest, aText); !lProblem.empty())
    {
        return lProblem;
    }
    const uLong lChecksum = crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(aText.data()),
                                  static_cast<uInt>(aText.size()));
    return lChecksum == aMember.mChecksum ? "" : "its data are damaged";
}

} // namespace

std::string Unzip(std::string aFile, size_t aLargest, std::string& aText)
{
    aText.clear();
    // The first bytes decide, not the name that the device gives the file.
    if (aFile.compare(0, 2, "PK") != 0)
    {
        aText = std::move(aFile);
        return {};
    }
    const Bytes lArchive(aFile);
    const std::optional<Member> lMember = FindMember(lArchive);
    std::string lProblem =
        lMember ? Unpack(lArchive, *lMember, aLargest, aText) : std::string("its directory makes no sense");
    if (!lProblem.empty())
    {
        std::string().swap(aText);
    }
    return lProblem;
}

} // namespace KyGigE

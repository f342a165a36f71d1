#include "Simulator/Network/ZipFile.h"

#include <cstddef>
#include <cstdint>
#include <zlib.h>

namespace KySimulator
{

namespace
{

constexpr uint32_t cLocalHeader = 0x04034B50;
constexpr uint32_t cDirectoryEntry = 0x02014B50;
constexpr uint32_t cDirectoryEnd = 0x06054B50;
constexpr uint32_t cNeededVersion = 20; // 2.0, the first with this compression

/// Appends a number, the lowest byte first.
void Put(std::string& aFile, uint32_t aValue, size_t aSize)
{
    for (size_t lByte = 0; lByte < aSize; ++lByte)
    {
        aFile.push_back(static_cast<char>(aValue >> 8U * lByte & 0xFFU));
    }
}

std::string Deflate(const std::string& aContent)
{
    z_stream lStream{};
    // A negative size: without a header of zlib's own, as archives want it.
    if (deflateInit2(&lStream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL,
                     Z_DEFAULT_STRATEGY) != Z_OK)
    {
        return {};
    }
    std::string lPacked(deflateBound(&lStream, static_cast<uLong>(aContent.size())), '\0');
    // zlib does not write there.
    lStream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(aContent.data()));
    lStream.avail_in = static_cast<uInt>(aContent.size());
    lStream.next_out = reinterpret_cast<Bytef*>(lPacked.data());
    lStream.avail_out = static_cast<uInt>(lPacked.size());
    const bool lDone = deflate(&lStream, Z_FINISH) == Z_STREAM_END;
    lPacked.resize(lDone ? lPacked.size() - lStream.avail_out : 0);
    deflateEnd(&lStream);
    return lPacked;
}

/// What header and directory entry have in common.
void PutFile(std::string& aFile, uint32_t aChecksum, size_t aPacked, size_t aSize, size_t aName)
{
    Put(aFile, cNeededVersion, 2);
    Put(aFile, 0, 2); // flags
    Put(aFile, Z_DEFLATED, 2);
    Put(aFile, 0, 4); // time and date
    Put(aFile, aChecksum, 4);
    Put(aFile, static_cast<uint32_t>(aPacked), 4);
    Put(aFile, static_cast<uint32_t>(aSize), 4);
    Put(aFile, static_cast<uint32_t>(aName), 2);
    Put(aFile, 0, 2); // no further fields
}

} // namespace

std::string MakeZip(const std::string& aName, const std::string& aContent)
{
    const std::string lPacked = Deflate(aContent);
    // Even an empty content packs to some bytes, so no bytes means that packing has failed.
    if (lPacked.empty())
    {
        return {};
    }
    const auto lChecksum =
        static_cast<uint32_t>(crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(aContent.data()),
                                    static_cast<uInt>(aContent.size())));
    std::string lFile;
    Put(lFile, cLocalHeader, 4);
    PutFile(lFile, lChecksum, lPacked.size(), aContent.size(), aName.size());
    lFile += aName + lPacked;
    const size_t lDirectory = lFile.size();
    // The directory repeats the header, since readers start at the end of the file.
    Put(lFile, cDirectoryEntry, 4);
    Put(lFile, cNeededVersion, 2); // made by
    PutFile(lFile, lChecksum, lPacked.size(), aContent.size(), aName.size());
    Put(lFile, 0, 2); // no comment
    Put(lFile, 0, 4); // first disk, no attributes
    Put(lFile, 0, 4);
    Put(lFile, 0, 4); // where the file begins
    lFile += aName;
    const size_t lSize = lFile.size() - lDirectory;
    Put(lFile, cDirectoryEnd, 4);
    Put(lFile, 0, 4); // one disk
    Put(lFile, 1, 2); // files on it, and in all
    Put(lFile, 1, 2);
    Put(lFile, static_cast<uint32_t>(lSize), 4);
    Put(lFile, static_cast<uint32_t>(lDirectory), 4);
    Put(lFile, 0, 2); // no comment
    return lFile;
}

} // namespace KySimulator

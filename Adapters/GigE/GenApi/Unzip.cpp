#include "Adapters/GigE/GenApi/Unzip.h"

#include <arv.h>

namespace KyGigE
{

std::string Unzipped(const std::string& aFile)
{
    constexpr size_t cLargest = size_t{64} << 20U;
    if (aFile.rfind("PK", 0) != 0)
    {
        return aFile;
    }
    ArvZip* const lArchive = arv_zip_new(aFile.data(), aFile.size());
    const GSList* const lFirst = lArchive != nullptr ? arv_zip_get_file_list(lArchive) : nullptr;
    std::string lText;
    if (lFirst != nullptr)
    {
        auto* const lEntry = static_cast<ArvZipFile*>(lFirst->data);
        size_t lSize = 0;
        void* const lContent = arv_zip_file_get_uncompressed_size(lEntry) <= cLargest
                                   ? arv_zip_get_file(lArchive, arv_zip_file_get_name(lEntry), &lSize)
                                   : nullptr;
        if (lContent != nullptr)
        {
            lText.assign(static_cast<const char*>(lContent), lSize);
            g_free(lContent);
        }
    }
    if (lArchive != nullptr)
    {
        arv_zip_free(lArchive);
    }
    return lText;
}

} // namespace KyGigE

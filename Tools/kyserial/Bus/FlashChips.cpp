#include "kyserial/Bus/FlashChips.h"

#include <algorithm>
#include <array>

namespace KySerialTool
{

namespace
{

constexpr size_t cKiB = 1024;

// Identities and sizes of the makers' data sheets.
constexpr std::array cChips = std::to_array<FlashChip>({
    {{0xEF, 0x30, 0x10}, "W25X05", 64 * cKiB},        {{0xEF, 0x30, 0x11}, "W25X10", 128 * cKiB},
    {{0xEF, 0x30, 0x12}, "W25X20", 256 * cKiB},       {{0xEF, 0x30, 0x13}, "W25X40", 512 * cKiB},
    {{0xEF, 0x40, 0x14}, "W25Q80", 1024 * cKiB},      {{0xEF, 0x40, 0x15}, "W25Q16", 2048 * cKiB},
    {{0xEF, 0x40, 0x16}, "W25Q32", 4096 * cKiB},      {{0xEF, 0x40, 0x17}, "W25Q64", 8192 * cKiB},
    {{0xEF, 0x40, 0x18}, "W25Q128", 16384 * cKiB},    {{0xC2, 0x20, 0x10}, "MX25L512E", 64 * cKiB},
    {{0xC2, 0x20, 0x11}, "MX25L1006E", 128 * cKiB},   {{0xC2, 0x20, 0x12}, "MX25L2006E", 256 * cKiB},
    {{0xC2, 0x20, 0x13}, "MX25L4006E", 512 * cKiB},   {{0xC2, 0x20, 0x14}, "MX25L8006E", 1024 * cKiB},
    {{0xC2, 0x20, 0x15}, "MX25L1606E", 2048 * cKiB},  {{0xC2, 0x20, 0x16}, "MX25L3206E", 4096 * cKiB},
    {{0xC2, 0x20, 0x17}, "MX25L6406E", 8192 * cKiB},  {{0x20, 0x20, 0x10}, "M25P05", 64 * cKiB},
    {{0x20, 0x20, 0x11}, "M25P10", 128 * cKiB},       {{0x20, 0x20, 0x12}, "M25P20", 256 * cKiB},
    {{0x20, 0x20, 0x13}, "M25P40", 512 * cKiB},       {{0x20, 0x20, 0x14}, "M25P80", 1024 * cKiB},
    {{0x20, 0x20, 0x15}, "M25P16", 2048 * cKiB},      {{0x20, 0x20, 0x16}, "M25P32", 4096 * cKiB},
    {{0x20, 0x20, 0x17}, "M25P64", 8192 * cKiB},      {{0xC8, 0x40, 0x13}, "GD25Q40", 512 * cKiB},
    {{0xC8, 0x40, 0x14}, "GD25Q80", 1024 * cKiB},     {{0xC8, 0x40, 0x15}, "GD25Q16", 2048 * cKiB},
    {{0xC8, 0x40, 0x16}, "GD25Q32", 4096 * cKiB},     {{0xC8, 0x40, 0x17}, "GD25Q64", 8192 * cKiB},
    {{0xC8, 0x40, 0x18}, "GD25Q128", 16384 * cKiB},   {{0xBF, 0x25, 0x8D}, "SST25VF040B", 512 * cKiB},
    {{0xBF, 0x25, 0x8E}, "SST25VF080B", 1024 * cKiB}, {{0xBF, 0x25, 0x41}, "SST25VF016B", 2048 * cKiB},
    {{0xBF, 0x25, 0x4A}, "SST25VF032B", 4096 * cKiB}, {{0x1F, 0x44, 0x01}, "AT25DF041A", 512 * cKiB},
    {{0x1F, 0x45, 0x01}, "AT25DF081", 1024 * cKiB},   {{0x1F, 0x46, 0x01}, "AT25DF161", 2048 * cKiB},
    {{0x1F, 0x47, 0x00}, "AT25DF321", 4096 * cKiB},
});

} // namespace

const FlashChip* FindFlashChip(const FlashMemory::Identity& aIdentity)
{
    const auto* const lFound = std::find_if(
        cChips.begin(), cChips.end(), [&](const FlashChip& aChip) { return aChip.mIdentity == aIdentity; });
    return lFound != cChips.end() ? &*lFound : nullptr;
}

} // namespace KySerialTool

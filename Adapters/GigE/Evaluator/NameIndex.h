#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace KyGigE
{

using NodeId = uint32_t;
constexpr NodeId cNoNode = UINT32_MAX;

/// Finds nodes by their names. It holds no names: each call brings a function that knows the name of a node.
///
/// A device chooses the names. Where many lead to one place, a search would become long; such names are refused.
class NameIndex
{
public:
    /// Makes room for aCount names; nothing is in it then.
    void Reserve(size_t aCount)
    {
        size_t lPlaces = 8;
        while (lPlaces < aCount * 2)
        {
            lPlaces *= 2;
        }
        mPlaces.assign(lPlaces, {0, cNoNode});
    }

    /// Adds a node, unless one of its name is there.
    /// \return False: too many names lead to its place.
    template<typename NameOf>
    bool Add(NodeId aNode, const NameOf& aNameOf)
    {
        const std::string_view lName = aNameOf(aNode);
        Place* const lPlace = Search(mPlaces, lName, HashOf(lName), aNameOf);
        if (lPlace != nullptr && lPlace->mNode == cNoNode)
        {
            *lPlace = {HashOf(lName), aNode};
        }
        return lPlace != nullptr;
    }

    /// \return cNoNode for none.
    template<typename NameOf>
    NodeId Find(std::string_view aName, const NameOf& aNameOf) const
    {
        const Place* const lPlace = Search(mPlaces, aName, HashOf(aName), aNameOf);
        return lPlace != nullptr ? lPlace->mNode : cNoNode;
    }

    static constexpr size_t cLongestSearch = 1000;

    /// Where the search for a name begins, as far as there are places.
    static uint32_t HashOf(std::string_view aName)
    {
        constexpr uint64_t cFactor = 0x9E3779B97F4A7C15U;
        uint64_t lHash = aName.size() * cFactor;
        for (size_t lPlace = 0; lPlace < aName.size(); lPlace += sizeof(uint64_t))
        {
            const size_t lLeft = aName.size() - lPlace;
            uint64_t lPart = 0;
            std::memcpy(&lPart, aName.data() + lPlace, lLeft < sizeof(lPart) ? lLeft : sizeof(lPart));
            lHash = (lHash ^ lPart) * cFactor;
            lHash ^= lHash >> 29U;
        }
        return static_cast<uint32_t>(lHash >> 32U);
    }

private:
    struct Place
    {
        uint32_t mHash;
        NodeId mNode;
    };

    /// The place that has the name, or the free one where it belongs; null when the search is too long.
    template<typename Places, typename NameOf>
    static auto Search(Places& aPlaces, std::string_view aName, uint32_t aHash, const NameOf& aNameOf)
        -> decltype(aPlaces.data())
    {
        const size_t lMask = aPlaces.size() - 1;
        const size_t lLongest = aPlaces.size() < cLongestSearch ? aPlaces.size() : cLongestSearch;
        for (size_t lStep = 0; lStep < lLongest; ++lStep)
        {
            auto& lPlace = aPlaces[(aHash + lStep) & lMask];
            if (lPlace.mNode == cNoNode || (lPlace.mHash == aHash && aNameOf(lPlace.mNode) == aName))
            {
                return &lPlace;
            }
        }
        return nullptr;
    }

    std::vector<Place> mPlaces;
};

} // namespace KyGigE

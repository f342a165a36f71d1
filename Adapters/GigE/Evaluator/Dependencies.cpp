#include "Adapters/GigE/Evaluator/Dependencies.h"

#include <charconv>
#include <utility>

namespace KyGigE
{

namespace
{

constexpr size_t cDeepestCategory = 100;

/// Writing the node writes the other one.
bool IsTarget(PropertyId aId)
{
    return aId == PropertyId::PValue || aId == PropertyId::PValueCopy || aId == PropertyId::PValueIndexed ||
           aId == PropertyId::PValueDefault;
}

/// The other one's value has a part in what a user sees of the node: its value, its range, its access.
bool IsPart(PropertyId aId)
{
    return aId >= PropertyId::Entry && aId != PropertyId::Feature && aId != PropertyId::Selected;
}

/// Its kept value is made of the other one's.
bool IsValuePart(PropertyId aId)
{
    return IsTarget(aId) || aId == PropertyId::PAddress || aId == PropertyId::PLength ||
           aId == PropertyId::Index || aId == PropertyId::PIndexOffset || aId == PropertyId::Variable;
}

bool IsFeature(const Node& aNode)
{
    return !aNode.mName.empty() && aNode.mKind != ElementKind::Port && aNode.mKind != ElementKind::Category &&
           aNode.mKind != ElementKind::EnumEntry;
}

/// Hexadecimal, usually without a prefix.
uint16_t ParseEventId(std::string_view aText)
{
    if (aText.substr(0, 2) == "0x" || aText.substr(0, 2) == "0X")
    {
        aText.remove_prefix(2);
    }
    uint16_t lId = 0;
    const char* const lEnd = aText.data() + aText.size();
    const auto lResult = std::from_chars(aText.data(), lEnd, lId, 16);
    // 0 is no event: a port with a text that makes no sense is taken for the device's own.
    return lResult.ec == std::errc() && lResult.ptr == lEnd ? lId : uint16_t{0};
}

uint64_t ParseTime(std::string_view aText)
{
    uint64_t lTime = 0;
    std::from_chars(aText.data(), aText.data() + aText.size(), lTime); // stays 0
    return lTime;
}

uint64_t Shorter(uint64_t aFirst, uint64_t aSecond)
{
    // A time of 0 stands for "none", and is longer than any.
    return aFirst == 0 || (aSecond != 0 && aSecond < aFirst) ? aSecond : aFirst;
}

} // namespace

Dependencies::Dependencies(const NodeTable& aNodes) : mNodes(aNodes)
{
    CollectUsers();
    CollectPorts();
    SpreadPollingTimes();
}

void Dependencies::CollectUsers()
{
    const auto lCount = static_cast<NodeId>(mNodes.GetCount());
    mFirstUser.assign(lCount + 1, 0);
    // Two passes with the same rule: one counts, one fills in.
    const auto lForEach = [&](const auto& aDo)
    {
        for (NodeId lNode = 0; lNode < lCount; ++lNode)
        {
            for (const Property& lProperty : mNodes.GetProperties(lNode))
            {
                if (lProperty.mNode != cNoNode && IsPart(lProperty.mId))
                {
                    aDo(lProperty.mNode, lNode);
                }
            }
        }
    };
    // Counted, then filled from the end of each range: one list for all nodes, with one allocation.
    lForEach([&](NodeId aUsed, NodeId) { ++mFirstUser[aUsed]; });
    uint32_t lEnd = 0;
    for (uint32_t& lFirst : mFirstUser)
    {
        lEnd += lFirst;
        lFirst = lEnd;
    }
    mUsers.resize(lEnd);
    lForEach([&](NodeId aUsed, NodeId aUser) { mUsers[--mFirstUser[aUsed]] = aUser; });
}

void Dependencies::CollectPorts()
{
    for (NodeId lNode = 0; lNode < mNodes.GetCount(); ++lNode)
    {
        const Node& lPort = mNodes.Get(lNode);
        const uint16_t lId = lPort.mKind == ElementKind::Port
                                 ? ParseEventId(mNodes.GetText(lNode, PropertyId::EventId))
                                 : uint16_t{0};
        if (lId != 0)
        {
            mEventPorts.try_emplace(std::string(lPort.mName), lId);
            mEventIds[lNode] = lId;
        }
    }
}

// A polled feature is read from the device at each poll, so the values that it is made of must not be kept longer.
void Dependencies::SpreadPollingTimes()
{
    Nodes lOpen;
    for (NodeId lNode = 0; lNode < mNodes.GetCount(); ++lNode)
    {
        // A text that makes no sense counts as no polling time.
        const uint64_t lTime = ParseTime(mNodes.GetText(lNode, PropertyId::PollingTime));
        if (lTime != 0)
        {
            mLifetimes[lNode] = lTime;
            lOpen.push_back(lNode);
        }
    }
    // Each node is looked at again only when its time has become shorter by another node's; no more than a
    // few times.
    for (size_t lSteps = 0; !lOpen.empty() && lSteps < NodeTable::cMostProperties;)
    {
        const NodeId lNode = lOpen.back();
        lOpen.pop_back();
        const uint64_t lTime = mLifetimes[lNode];
        for (const Property& lProperty : mNodes.GetProperties(lNode))
        {
            ++lSteps;
            uint64_t* const lOther = lProperty.mNode != cNoNode && IsTarget(lProperty.mId)
                                         ? &mLifetimes[lProperty.mNode]
                                         : nullptr;
            if (lOther != nullptr && Shorter(*lOther, lTime) != *lOther)
            {
                *lOther = lTime;
                lOpen.push_back(lProperty.mNode);
            }
        }
    }
}

uint16_t Dependencies::GetEventId(NodeId aPort) const
{
    const auto lFound = mEventIds.find(aPort);
    return lFound != mEventIds.end() ? lFound->second : uint16_t{0};
}

uint64_t Dependencies::GetLifetime(NodeId aNode) const
{
    const auto lFound = mLifetimes.find(aNode);
    return lFound != mLifetimes.end() ? lFound->second : 0;
}

/// The nodes and all that are made of them.
Dependencies::Flags Dependencies::Users(const Nodes& aStart) const
{
    Flags lSeen(mNodes.GetCount());
    Nodes lOpen = aStart;
    for (const NodeId lNode : aStart)
    {
        lSeen[lNode] = true;
    }
    while (!lOpen.empty())
    {
        const NodeId lNode = lOpen.back();
        lOpen.pop_back();
        for (uint32_t lUser = mFirstUser[lNode]; lUser < mFirstUser[lNode + 1]; ++lUser)
        {
            if (!lSeen[mUsers[lUser]])
            {
                lSeen[mUsers[lUser]] = true;
                lOpen.push_back(mUsers[lUser]);
            }
        }
    }
    return lSeen;
}

/// The node, what writing it writes, and what it selects.
Dependencies::Flags Dependencies::WrittenWith(NodeId aNode) const
{
    Flags lSeen(mNodes.GetCount());
    lSeen[aNode] = true;
    Nodes lOpen = {aNode};
    while (!lOpen.empty())
    {
        const NodeId lNode = lOpen.back();
        lOpen.pop_back();
        for (const Property& lProperty : mNodes.GetProperties(lNode))
        {
            // A selector changes which registers its features stand for, so they count as written.
            const bool lFollows = IsTarget(lProperty.mId) || lProperty.mId == PropertyId::Selected;
            if (lFollows && lProperty.mNode != cNoNode && !lSeen[lProperty.mNode])
            {
                lSeen[lProperty.mNode] = true;
                lOpen.push_back(lProperty.mNode);
            }
        }
    }
    return lSeen;
}

Dependencies::Nodes Dependencies::ListOf(const Flags& aNodes)
{
    Nodes lNodes;
    for (NodeId lNode = 0; lNode < aNodes.size(); ++lNode)
    {
        if (aNodes[lNode])
        {
            lNodes.push_back(lNode);
        }
    }
    return lNodes;
}

std::vector<std::string> Dependencies::NamesOf(const Flags& aNodes) const
{
    std::vector<std::string> lNames;
    for (const NodeId lNode : ListOf(aNodes))
    {
        if (IsFeature(mNodes.Get(lNode)) && mNodes.FindNode(mNodes.Get(lNode).mName) == lNode)
        {
            lNames.emplace_back(mNodes.Get(lNode).mName);
        }
    }
    return lNames;
}

std::vector<std::string> Dependencies::FedBy(uint16_t aEventId) const
{
    Nodes lPorts;
    for (const auto& [lPort, lId] : mEventIds)
    {
        if (lId == aEventId)
        {
            lPorts.push_back(lPort);
        }
    }
    return NamesOf(Users(lPorts));
}

bool Dependencies::CollectFed(std::map<uint16_t, std::vector<std::string>>& aFed) const
{
    constexpr size_t cMostSteps = 20'000'000; // each event may mean one look at the whole description
    constexpr size_t cMostFed = 100'000;
    size_t lCount = 0;
    for (const auto& [lPort, lEvent] : mEventIds)
    {
        // Several ports may bring one event. FedBy() has looked at all of them already.
        if (aFed.count(lEvent) != 0)
        {
            continue;
        }
        aFed[lEvent] = FedBy(lEvent);
        lCount += aFed[lEvent].size();
        if (lCount > cMostFed || aFed.size() * (mUsers.size() + mNodes.GetCount()) > cMostSteps)
        {
            aFed.clear();
            return false;
        }
    }
    return true;
}

std::vector<std::string> Dependencies::AffectedBy(const std::string& aName) const
{
    const NodeId lNode = mNodes.FindNode(aName);
    return lNode != cNoNode ? NamesOf(Users(ListOf(WrittenWith(lNode)))) : std::vector<std::string>();
}

// Upwards to all that the written nodes have a part in, then downwards: what makes a feature stale makes the
// registers stale that it is read from, although only the feature may name its invalidator.
std::vector<NodeId> Dependencies::StaleAfter(NodeId aNode) const
{
    Flags lSeen = Users(ListOf(WrittenWith(aNode)));
    Nodes lOpen = ListOf(lSeen);
    while (!lOpen.empty())
    {
        const NodeId lNode = lOpen.back();
        lOpen.pop_back();
        for (const Property& lProperty : mNodes.GetProperties(lNode))
        {
            if (lProperty.mNode != cNoNode && IsValuePart(lProperty.mId) && !lSeen[lProperty.mNode])
            {
                lSeen[lProperty.mNode] = true;
                lOpen.push_back(lProperty.mNode);
            }
        }
    }
    return ListOf(lSeen);
}

uint64_t Dependencies::PollingTimeOf(const std::string& aName) const
{
    uint64_t lTime = 0;
    const NodeId lNode = mNodes.FindNode(aName);
    for (const NodeId lPart : lNode != cNoNode ? ListOf(WrittenWith(lNode)) : Nodes())
    {
        // The time may stand at the register that the feature is read from, so all of them count; the shortest decides.
        lTime = Shorter(lTime, ParseTime(mNodes.GetText(lPart, PropertyId::PollingTime)));
    }
    return lTime;
}

/// The list as far as it is made.
struct Dependencies::Listing
{
    std::vector<ListedFeature> mFeatures{};
    Flags mSeen{};
    size_t mTextLeft = XmlDocument::cLargestText;

    /// Entries of a structure have one text together, and features one category: copies may be many times as long.
    std::string Take(std::string_view aText)
    {
        // A text without room is left out; the feature is listed all the same.
        const bool lFits = aText.size() <= mTextLeft;
        mTextLeft -= lFits ? aText.size() : 0;
        return std::string(lFits ? aText : std::string_view());
    }
};

void Dependencies::Add(NodeId aNode, std::string_view aCategory, Listing& aListing) const
{
    const std::string_view lVisibility = mNodes.GetText(aNode, PropertyId::Visibility);
    aListing.mFeatures.push_back({std::string(mNodes.Get(aNode).mName), aListing.Take(aCategory),
                                  aListing.Take(lVisibility.empty() ? "Beginner" : lVisibility),
                                  aListing.Take(mNodes.GetText(aNode, PropertyId::ToolTip))});
}

void Dependencies::List(NodeId aCategory, size_t aDepth, Listing& aListing) const
{
    for (const Property& lProperty : mNodes.GetProperties(aCategory))
    {
        const NodeId lNode = lProperty.mId == PropertyId::Feature ? lProperty.mNode : cNoNode;
        if (lNode == cNoNode || aListing.mSeen[lNode])
        {
            continue;
        }
        // A feature in two categories is listed once, and categories that contain each other come to an end.
        aListing.mSeen[lNode] = true;
        if (IsFeature(mNodes.Get(lNode)))
        {
            Add(lNode, mNodes.Get(aCategory).mName, aListing);
        }
        else if (mNodes.Get(lNode).mKind == ElementKind::Category && aDepth < cDeepestCategory)
        {
            List(lNode, aDepth + 1, aListing);
        }
    }
}

size_t Dependencies::CountFeatures() const
{
    size_t lCount = 0;
    for (NodeId lNode = 0; lNode < mNodes.GetCount(); ++lNode)
    {
        lCount += IsFeature(mNodes.Get(lNode)) ? 1 : 0;
    }
    return lCount;
}

std::vector<ListedFeature> Dependencies::GetFeatures() const
{
    Listing lListing;
    lListing.mFeatures.reserve(CountFeatures());
    lListing.mSeen.resize(mNodes.GetCount());
    const NodeId lRoot = mNodes.FindNode("Root");
    if (lRoot != cNoNode)
    {
        lListing.mSeen[lRoot] = true;
        List(lRoot, 0, lListing);
        return std::move(lListing.mFeatures);
    }
    for (NodeId lNode = 0; lNode < mNodes.GetCount(); ++lNode)
    {
        // Without categories all features are listed; of two with one name the first.
        if (IsFeature(mNodes.Get(lNode)) && mNodes.FindNode(mNodes.Get(lNode).mName) == lNode)
        {
            Add(lNode, {}, lListing);
        }
    }
    return std::move(lListing.mFeatures);
}

} // namespace KyGigE

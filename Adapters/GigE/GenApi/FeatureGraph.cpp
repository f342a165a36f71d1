#include "Adapters/GigE/GenApi/FeatureGraph.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <deque>

namespace KyGigE
{

namespace
{

constexpr size_t cLongestChain = 200;

/// What an element that refers to another node says about it.
enum class Reference
{
    None,
    Value,     // its value is part of this one's
    Target,    // the same, and writing this writes that
    Condition, // it decides about range, access or freshness
    Selected,
    Feature
};

Reference ReferenceOf(const std::string& aElement)
{
    if (aElement.size() < 2 || aElement[0] != 'p' ||
        std::isupper(static_cast<unsigned char>(aElement[1])) == 0)
    {
        return Reference::None;
    }
    if (aElement == "pFeature")
    {
        return Reference::Feature;
    }
    if (aElement == "pSelected")
    {
        return Reference::Selected;
    }
    if (aElement == "pSelecting" || aElement == "pError" || aElement == "pAlias" || aElement == "pCastAlias")
    {
        return Reference::None;
    }
    if (aElement.rfind("pIs", 0) == 0 || aElement == "pMin" || aElement == "pMax" || aElement == "pInc" ||
        aElement == "pInvalidator" || aElement == "pBlockPolling")
    {
        return Reference::Condition;
    }
    return aElement.rfind("pValue", 0) == 0 ? Reference::Target : Reference::Value;
}

/// The identifier of a port's events; 0 for none. It is hexadecimal, usually without a prefix.
uint16_t EventIDOf(const xmlNode& aPort)
{
    const xmlNode* const lElement = ChildOf(aPort, "EventID");
    if (lElement == nullptr)
    {
        return 0;
    }
    const std::string lText = ContentOf(*lElement);
    char* lEnd = nullptr;
    const unsigned long lID = std::strtoul(lText.c_str(), &lEnd, 16);
    return lText.empty() || *lEnd != '\0' || lID > UINT16_MAX ? 0 : static_cast<uint16_t>(lID);
}

std::string ContentOfChild(const xmlNode& aElement, const char* aName)
{
    const xmlNode* const lChild = ChildOf(aElement, aName);
    return lChild != nullptr ? ContentOf(*lChild) : std::string();
}

bool IsFeature(const std::string& aKind)
{
    return aKind != "Port" && aKind != "Category" && aKind != "StructReg";
}

} // namespace

FeatureGraph::FeatureGraph(const xmlNode& aRoot)
{
    Collect(aRoot);
    for (const auto& [lName, lNode] : mNodes)
    {
        for (const auto* const lReferences : {&lNode.mValues, &lNode.mTargets, &lNode.mConditions})
        {
            for (const std::string& lReference : *lReferences)
            {
                mUsers[lReference].insert(lName);
            }
        }
    }
}

void FeatureGraph::Collect(const xmlNode& aParent)
{
    ForEachChild(aParent,
                 [this](xmlNode& aElement)
                 {
                     const std::string lKind = NameOf(aElement);
                     if (lKind == "Group")
                     {
                         ForEachChild(aElement, [this](xmlNode& aInner) { AddElement(aInner); });
                         return;
                     }
                     AddElement(aElement);
                 });
}

void FeatureGraph::AddElement(const xmlNode& aElement)
{
    AddNode(aElement, nullptr);
    if (NameOf(aElement) == "StructReg")
    {
        ForEachChild(aElement,
                     [&](xmlNode& aEntry)
                     {
                         if (NameOf(aEntry) == "StructEntry")
                         {
                             AddNode(aEntry, &aElement);
                         }
                     });
    }
}

void FeatureGraph::AddNode(const xmlNode& aElement, const xmlNode* aOwner)
{
    const std::string lName = AttributeOf(aElement, "Name");
    if (lName.empty())
    {
        return;
    }
    Node lNode;
    lNode.mKind = NameOf(aElement);
    lNode.mPosition = mNodes.size();
    AddReferences(aElement, lNode);
    if (aOwner != nullptr)
    {
        AddReferences(*aOwner, lNode); // an entry lies where the structure lies
    }
    const std::string lVisibility = ContentOfChild(aElement, "Visibility");
    lNode.mListed = {
        lName, {}, lVisibility.empty() ? "Beginner" : lVisibility, ContentOfChild(aElement, "ToolTip")};
    lNode.mPollingTime = std::strtoull(ContentOfChild(aElement, "PollingTime").c_str(), nullptr, 10);
    if (lNode.mKind == "Port")
    {
        if (const uint16_t lID = EventIDOf(aElement))
        {
            mEventPorts[lName] = lID;
        }
    }
    const auto [lFound, lNew] = mNodes.try_emplace(lName, std::move(lNode));
    if (!lNew)
    {
        // A name that comes twice: the evaluator may take either node, so the references of both count.
        Node& lBoth = lFound->second;
        lBoth.mValues.merge(lNode.mValues); // NOLINT(bugprone-use-after-move): try_emplace() has not moved it
        lBoth.mTargets.merge(lNode.mTargets);
        lBoth.mConditions.merge(lNode.mConditions);
        lBoth.mSelected.merge(lNode.mSelected);
    }
}

void FeatureGraph::AddReferences(const xmlNode& aElement, Node& aNode)
{
    ForEachChild(aElement,
                 [&](xmlNode& aChild)
                 {
                     const std::string lName = NameOf(aChild);
                     if (lName == "EnumEntry")
                     {
                         AddReferences(aChild, aNode);
                     }
                     switch (ReferenceOf(lName))
                     {
                     case Reference::Value:
                         aNode.mValues.insert(ContentOf(aChild));
                         break;
                     case Reference::Target:
                         aNode.mTargets.insert(ContentOf(aChild));
                         break;
                     case Reference::Condition:
                         aNode.mConditions.insert(ContentOf(aChild));
                         break;
                     case Reference::Selected:
                         aNode.mSelected.insert(ContentOf(aChild));
                         break;
                     case Reference::Feature:
                         aNode.mFeatures.push_back(ContentOf(aChild));
                         break;
                     case Reference::None:
                         break;
                     }
                 });
}

// Length of the longest chain of references that starts at a node; cLongestChain or more when it is too long.
size_t FeatureGraph::HeightOf(const std::string& aName, size_t aDepth,
                              std::map<std::string, size_t>& aHeights) const
{
    const auto lNode = mNodes.find(aName);
    const auto [lHeight, lNew] = aHeights.emplace(aName, cLongestChain); // stays for a node that meets itself
    if (!lNew || aDepth >= cLongestChain)
    {
        return lHeight->second;
    }
    size_t lHighest = 0;
    if (lNode != mNodes.end())
    {
        for (const auto* const lReferences : {&lNode->second.mValues, &lNode->second.mTargets})
        {
            for (const std::string& lReference : *lReferences)
            {
                lHighest = std::max(lHighest, HeightOf(lReference, aDepth + 1, aHeights) + 1);
            }
        }
    }
    lHeight->second = lHighest;
    return lHighest;
}

std::string FeatureGraph::FindEndlessReference() const
{
    std::map<std::string, size_t> lHeights;
    for (const auto& [lName, lNode] : mNodes)
    {
        if (HeightOf(lName, 0, lHeights) >= cLongestChain)
        {
            return "The value of " + lName + " depends on itself, or on too many others.";
        }
    }
    return {};
}

std::vector<std::string> FeatureGraph::InvolvedIn(const std::string& aName) const
{
    std::vector<std::string> lNames;
    std::set<std::string> lSeen;
    std::vector<std::pair<std::string, bool>> lOpen{{aName, false}}; // whether its references were before it
    while (!lOpen.empty())
    {
        const auto [lName, lIsDone] = lOpen.back();
        lOpen.pop_back();
        const auto lNode = mNodes.find(lName);
        if (lIsDone)
        {
            lNames.push_back(lName);
        }
        else if (lNode != mNodes.end() && lSeen.insert(lName).second)
        {
            lOpen.emplace_back(lName, true);
            for (const auto* const lReferences :
                 {&lNode->second.mValues, &lNode->second.mTargets, &lNode->second.mConditions})
            {
                for (const std::string& lReference : *lReferences)
                {
                    lOpen.emplace_back(lReference, false);
                }
            }
        }
    }
    return lNames;
}

std::set<std::string> FeatureGraph::Closure(const std::set<std::string>& aStart) const
{
    std::set<std::string> lNames = aStart;
    std::deque<std::string> lOpen(aStart.begin(), aStart.end());
    while (!lOpen.empty())
    {
        const auto lUsers = mUsers.find(lOpen.front());
        lOpen.pop_front();
        if (lUsers == mUsers.end())
        {
            continue;
        }
        for (const std::string& lUser : lUsers->second)
        {
            if (lNames.insert(lUser).second)
            {
                lOpen.push_back(lUser);
            }
        }
    }
    return lNames;
}

std::vector<std::string> FeatureGraph::InOrder(const std::set<std::string>& aNames) const
{
    std::map<size_t, std::string> lSorted;
    for (const std::string& lName : aNames)
    {
        const auto lNode = mNodes.find(lName);
        if (lNode != mNodes.end() && IsFeature(lNode->second.mKind))
        {
            lSorted[lNode->second.mPosition] = lName;
        }
    }
    std::vector<std::string> lNames;
    for (auto& [lPosition, lName] : lSorted)
    {
        lNames.push_back(std::move(lName));
    }
    return lNames;
}

std::vector<std::string> FeatureGraph::FedBy(uint16_t aEventID) const
{
    std::set<std::string> lPorts;
    for (const auto& [lPort, lID] : mEventPorts)
    {
        if (lID == aEventID)
        {
            lPorts.insert(lPort);
        }
    }
    return InOrder(Closure(lPorts));
}

std::set<std::string> FeatureGraph::WrittenWith(const std::string& aName) const
{
    std::set<std::string> lNames;
    std::deque<std::string> lOpen = {aName};
    while (!lOpen.empty())
    {
        const auto lNode = mNodes.find(lOpen.front());
        lOpen.pop_front();
        if (lNode != mNodes.end() && lNames.insert(lNode->first).second)
        {
            lOpen.insert(lOpen.end(), lNode->second.mTargets.begin(), lNode->second.mTargets.end());
            lOpen.insert(lOpen.end(), lNode->second.mSelected.begin(), lNode->second.mSelected.end());
        }
    }
    return lNames;
}

std::vector<std::string> FeatureGraph::AffectedBy(const std::string& aName) const
{
    return InOrder(Closure(WrittenWith(aName)));
}

uint64_t FeatureGraph::PollingTimeOf(const std::string& aName) const
{
    uint64_t lTime = 0;
    for (const std::string& lName : WrittenWith(aName))
    {
        const uint64_t lOne = mNodes.at(lName).mPollingTime;
        lTime = lTime == 0 || (lOne != 0 && lOne < lTime) ? lOne : lTime;
    }
    return lTime;
}

void FeatureGraph::List(const std::string& aCategory, size_t aDepth, std::set<std::string>& aSeen,
                        std::vector<ListedFeature>& aFeatures) const
{
    for (const std::string& lName : mNodes.at(aCategory).mFeatures)
    {
        const auto lNode = mNodes.find(lName);
        if (lNode == mNodes.end() || !aSeen.insert(lName).second)
        {
            continue;
        }
        if (IsFeature(lNode->second.mKind))
        {
            aFeatures.push_back(lNode->second.mListed);
            aFeatures.back().mCategory = aCategory;
        }
        else if (lNode->second.mKind == "Category" && aDepth < cLongestChain)
        {
            List(lName, aDepth + 1, aSeen, aFeatures);
        }
    }
}

std::vector<ListedFeature> FeatureGraph::GetFeatures() const
{
    std::vector<ListedFeature> lFeatures;
    if (mNodes.count("Root") != 0)
    {
        std::set<std::string> lSeen = {"Root"};
        List("Root", 0, lSeen, lFeatures);
        return lFeatures;
    }
    std::set<std::string> lNames;
    for (const auto& [lName, lNode] : mNodes)
    {
        lNames.insert(lName);
    }
    for (const std::string& lName : InOrder(lNames))
    {
        lFeatures.push_back(mNodes.at(lName).mListed);
    }
    return lFeatures;
}

} // namespace KyGigE

#pragma once

#include "Adapters/GigE/GenApi/XmlDocument.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace KyGigE
{

/// A feature as the device's description lists it.
struct ListedFeature
{
    std::string mName;
    std::string mCategory;   ///< The folder that it is in.
    std::string mVisibility; ///< "Beginner", "Expert", "Guru" or "Invisible".
    std::string mToolTip;
};

/// Which node of a description refers to which, and what follows from it: which features an event feeds, and
/// which have another value after one was written.
///
/// Made once from a description, constant from then on.
class FeatureGraph
{
public:
    /// \param aRoot  The description's root element.
    explicit FeatureGraph(const xmlNode& aRoot);

    /// Why the nodes cannot be evaluated: one that needs its own value, or a chain of references longer than
    /// any device has. Empty when all is well. An evaluator would follow such references until its stack
    /// ends.
    std::string FindEndlessReference() const;

    /// The ports that events feed, each with its event.
    const std::map<std::string, uint16_t>& GetEventPorts() const { return mEventPorts; }

    /// Features whose value comes from that event, in the order of the description.
    std::vector<std::string> FedBy(uint16_t aEventID) const;

    /// aName and the features whose value may be another one after aName was written, in the order of the
    /// description.
    std::vector<std::string> AffectedBy(const std::string& aName) const;

    /// Every node that takes part when aName is evaluated, itself last; each after those that it refers to,
    /// as far as they do not refer to each other.
    std::vector<std::string> InvolvedIn(const std::string& aName) const;

    /// Milliseconds after which a feature of the device may have changed by itself; 0: no such time.
    uint64_t PollingTimeOf(const std::string& aName) const;

    /// What a user finds under the category "Root", in its order; everything when there is no such category.
    std::vector<ListedFeature> GetFeatures() const;

private:
    struct Node
    {
        std::string mKind;
        size_t mPosition = 0;
        std::set<std::string> mValues;      ///< Nodes that its value is made of.
        std::set<std::string> mTargets;     ///< The same, and writing this node writes them.
        std::set<std::string> mConditions;  ///< Nodes that decide about range and access.
        std::set<std::string> mSelected;    ///< Nodes of which it selects one.
        std::vector<std::string> mFeatures; ///< A category's.
        uint64_t mPollingTime = 0;
        ListedFeature mListed;
    };

    void Collect(const xmlNode& aParent);
    void AddElement(const xmlNode& aElement);
    void AddNode(const xmlNode& aElement, const xmlNode* aOwner);
    static void AddReferences(const xmlNode& aElement, Node& aNode);
    size_t HeightOf(const std::string& aName, size_t aDepth, std::map<std::string, size_t>& aHeights) const;
    void List(const std::string& aCategory, size_t aDepth, std::set<std::string>& aSeen,
              std::vector<ListedFeature>& aFeatures) const;
    std::set<std::string> WrittenWith(const std::string& aName) const;
    std::set<std::string> Closure(const std::set<std::string>& aStart) const;
    std::vector<std::string> InOrder(const std::set<std::string>& aNames) const;

    std::map<std::string, Node> mNodes;
    std::map<std::string, std::set<std::string>> mUsers; ///< Who refers to a node.
    std::map<std::string, uint16_t> mEventPorts;
};

} // namespace KyGigE

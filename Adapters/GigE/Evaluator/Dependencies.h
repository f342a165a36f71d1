#pragma once

#include "Adapters/GigE/Evaluator/NodeTable.h"

#include <cstdint>
#include <map>
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

/// Which node of a description refers to which, and what follows from it: which features an event feeds,
/// which have another value after one was written, and what is read anew then.
///
/// Made once from a description, constant from then on. Each question takes time in proportion to the
/// description at most.
class Dependencies
{
public:
    /// \param aNodes  Has to outlive the object.
    explicit Dependencies(const NodeTable& aNodes);

    /// The ports that events feed, each with its event.
    const std::map<std::string, uint16_t>& GetEventPorts() const { return mEventPorts; }
    /// The identifier of a port's events; 0 for none.
    uint16_t GetEventId(NodeId aPort) const;

    /// Features whose value comes from that event, in the order of the description.
    std::vector<std::string> FedBy(uint16_t aEventId) const;
    /// The same for each event. \return False: more than any device has, and as much memory or time.
    bool CollectFed(std::map<uint16_t, std::vector<std::string>>& aFed) const;
    /// aName and the features whose value may be another one after aName was written, in the order of the
    /// description.
    std::vector<std::string> AffectedBy(const std::string& aName) const;
    /// Milliseconds after which a feature of the device may have changed by itself; 0: no such time.
    uint64_t PollingTimeOf(const std::string& aName) const;
    /// What a user finds under the category "Root", in its order; everything when there is no such category.
    /// Texts that together are longer than a description, as features that share them may have, are left out.
    std::vector<ListedFeature> GetFeatures() const;

    /// The nodes whose kept values are not to be used after aNode was written or has expired; aNode and what
    /// it writes are among them.
    std::vector<NodeId> StaleAfter(NodeId aNode) const;
    /// Milliseconds that a node's kept value is good for; 0: as long as nothing else makes it stale.
    uint64_t GetLifetime(NodeId aNode) const;

private:
    using Nodes = std::vector<NodeId>;
    using Flags = std::vector<bool>;

    void CollectUsers();
    void CollectPorts();
    void SpreadPollingTimes();
    Flags Users(const Nodes& aStart) const;
    Flags WrittenWith(NodeId aNode) const;
    static Nodes ListOf(const Flags& aNodes);
    std::vector<std::string> NamesOf(const Flags& aNodes) const;
    size_t CountFeatures() const;
    struct Listing;
    void Add(NodeId aNode, std::string_view aCategory, Listing& aListing) const;
    void List(NodeId aCategory, size_t aDepth, Listing& aListing) const;

    const NodeTable& mNodes;
    std::vector<uint32_t> mFirstUser; ///< Of each node, in mUsers; one more at the end.
    Nodes mUsers;
    std::map<std::string, uint16_t> mEventPorts;
    std::map<NodeId, uint16_t> mEventIds;
    std::map<NodeId, uint64_t> mLifetimes;
};

} // namespace KyGigE

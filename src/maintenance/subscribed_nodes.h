// The real-time nodes of a subscription, read back from its record in the Data store
// (getSubscribedNodes).
#ifndef WSGATE_MAINTENANCE_SUBSCRIBED_NODES_H
#define WSGATE_MAINTENANCE_SUBSCRIBED_NODES_H

#include <string>
#include <vector>

#include "platform/cds.h"

// Replaces `nodes` with the node paths of the subscription's real-time nodes: the children
// of the "RTNodes" node of its record ("/Software/Data Servers/WS-Publisher/Subscriptions/"
// followed by the id, unchanged) in name order, each node name turned into a path with
// CPath::DottedPathToNodePath (an item that begins with "?" is copied as it is). Error
// texts, formatted without options, as the one item: code 28 "No subscriptionId given"
// without `id`, code 28 with the id as detail when the record has no "RTNodes" node. When
// the children cannot be read the list stays empty, deliberately without an error text.
void listSubscribedNodes(toolkit::CCds& cds, const std::string* id,
                         std::vector<std::string>& nodes);

#endif  // WSGATE_MAINTENANCE_SUBSCRIBED_NODES_H

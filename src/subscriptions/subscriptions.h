// Subscriptions: the records that the gateway's publishing service reads. This process
// publishes nothing itself; it writes a subscription as nodes and leaves under
//
//   /Software/Data Servers/WS-Publisher/Subscriptions/ID
//     ReplyURI, LeaseDuration, LogSinceTime, LogOptions, RTNodeCount  (Points with a Value)
//     RTNodes/NODE/{RqstdFreshness, Deadband}                          (one per real-time node)
//
// and bumps the counter /Software/Data Servers/WS-Publisher/SubUpdateCount, which the
// publishing service watches. NODE is CPath::PathToNodeName of the subscribed path. Record
// paths are cut at 255 bytes, the publishing service's limit, so very long ids or paths may
// share a record. The record and the counter are not written atomically: the publishing
// service must tolerate a subscription whose real-time nodes are still being written.
//
// Every write carries the caller's writer source text. No right is needed to subscribe; the
// current value returned for a real-time node is read with the caller's read right.
#ifndef WSGATE_SUBSCRIPTIONS_SUBSCRIPTIONS_H
#define WSGATE_SUBSCRIPTIONS_SUBSCRIPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/cds.h"

// The publishing service's node: its application status, the counter "SubUpdateCount" and
// the subscriptions.
inline constexpr const char* kPublisherPath = "/Software/Data Servers/WS-Publisher";
inline constexpr const char* kSubscriptionsPath =
    "/Software/Data Servers/WS-Publisher/Subscriptions";
// Real-time nodes one request may add, and paths it may remove: each costs a dozen store
// calls, and a request must not hold the only thread for minutes.
inline constexpr size_t kMaxRealTimeNodes = 10000;

// One real-time node asked for.
struct RealTimeNode {
  std::string path;
  int requested_freshness = 0;  // milliseconds
  double deadband_percent = 0;
};

// The current value of an accepted real-time node: the value text as getValue gives it, or
// an error text (then `time` is the current time and `quality` 0); `numeric` is the number
// behind a state text ("1"/"0" for a boolean); `quality` is the device quality of the node's
// device; `time` the value's time stamp, in platform time.
struct RealTimeNodeResult {
  std::string value;
  std::optional<std::string> numeric;
  unsigned short quality = 0;
  int64_t time = 0;
};
// Absent (no result list in the response) or a list, possibly empty.
using RealTimeNodeResults = std::optional<std::vector<RealTimeNodeResult>>;

struct SubscriptionRequest {
  std::string id;
  std::string reply_uri;
  int lease_duration = 0;
  int64_t log_since_time = 0;  // platform time
  int log_options = 0;  // flags: 1 Trend, 2 NonAlarmEvent, 4 Alarm, 8 Configuration, 16 Quality
  std::optional<std::vector<RealTimeNode>> nodes;
};

// The record path of subscription `id`: the subscriptions node, "/" and the id, cut at 255
// bytes. False when the id cannot name one node (empty, or holding a "/"): no such record
// can exist, and the path would name the subscriptions node itself or a node below another
// subscription.
bool subscriptionPath(const std::string& id, std::string& path);

// createSubscription. An empty id writes nothing and answers no list. Otherwise an existing
// record of the id is replaced whole: the record is made from its templates, the request's
// values written over the defaults (a failed write leaves the default), the counter bumped,
// and then the real-time nodes added; RTNodeCount is their number. Returns 0, 1 (a fault,
// nothing written) for an id that cannot name one node, or the non-zero value of the first
// template that fails (a fault; the nodes made so far stay). When the counter cannot be
// bumped the real-time nodes are not added (no list).
int createSubscription(toolkit::CCds& cds, const SubscriptionRequest& request,
                       RealTimeNodeResults& results);

// updateSubscriptionRealTimeNodes. Returns 1 (a fault) for an empty id. For a subscription
// that does not exist (or has no RTNodes) the answer is one result with error code 28.
// Otherwise the nodes to add are added or updated, those to remove dropped (failures
// ignored), RTNodeCount set to the number of entries left, and the added nodes' results
// answered.
int updateSubscriptionRealTimeNodes(toolkit::CCds& cds, const std::string& id,
                                    const std::optional<std::vector<RealTimeNode>>& add,
                                    const std::vector<std::string>& remove,
                                    RealTimeNodeResults& results);

// cancelSubscription. Removes the record and bumps the counter; returns 1 (a fault) when the
// subscription does not exist, and the counter is then left alone.
int cancelSubscription(toolkit::CCds& cds, const std::string& id);

#endif  // WSGATE_SUBSCRIPTIONS_SUBSCRIPTIONS_H

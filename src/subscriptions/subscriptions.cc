#include "subscriptions/subscriptions.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "platform/path.h"
#include "platform/swinfo.h"
#include "platform/utils.h"
#include "platform/vtx.h"
#include "service/errors.h"
#include "service/options.h"
#include "values/value_read.h"
#include "values/writer_source.h"

namespace {

// The publishing service reads record paths into buffers of 256 bytes.
constexpr size_t kMaxRecordPath = 255;
// The status of a record that could not be written, the one a failed template gives.
constexpr int kNotWritten = -1;

// Templates of the record's nodes. The defaults are placeholders that the operation
// overwrites at once; they are kept as they are, odd as they look ("1234" for a time,
// "replyUri" for an address), because they are what a subscription reads when a later write
// fails.
const tagnval kReplyUri[] = {
    {"/NodeType", "Point"}, {"/ValueType", "String"}, {"/Value", "replyUri"}, {nullptr, nullptr}};
const tagnval kLeaseDuration[] = {{"/NodeType", "Point"},
                                  {"/ValueType", "Integer"},
                                  {"/Value", "20"},
                                  {"/Units", "milliseconds"},
                                  {nullptr, nullptr}};
const tagnval kLogSinceTime[] = {
    {"/NodeType", "Point"}, {"/ValueType", "timeval"}, {"/Value", "1234"}, {nullptr, nullptr}};
const tagnval kLogOptions[] = {{"/NodeType", "Point"},
                               {"/ValueType", "Integer"},
                               {"/Value", "8"},
                               {"/Units", "no-units"},
                               {nullptr, nullptr}};
const tagnval kRtNodeCount[] = {{"/NodeType", "Point"},
                                {"/ValueType", "Integer"},
                                {"/Value", "0"},
                                {"/Units", "no-units"},
                                {nullptr, nullptr}};
const tagnval kRtNodes[] = {{"/NodeType", "Collection"},
                            {"/ValueType", "None"},
                            {"/HasDynamicChildren", "true"},
                            {nullptr, nullptr}};
const swinfo_template_t kSubscriptionTemplates[] = {
    {kSubscriptionsPath, "/ReplyURI", kReplyUri},
    {kSubscriptionsPath, "/LeaseDuration", kLeaseDuration},
    {kSubscriptionsPath, "/LogSinceTime", kLogSinceTime},
    {kSubscriptionsPath, "/LogOptions", kLogOptions},
    {kSubscriptionsPath, "/RTNodeCount", kRtNodeCount},
    {kSubscriptionsPath, "/RTNodes", kRtNodes},
};

const tagnval kRtNode[] = {{"/NodeType", "Collection"}, {"/ValueType", "None"}, {nullptr, nullptr}};
const tagnval kRqstdFreshness[] = {{"/NodeType", "Point"},
                                   {"/ValueType", "Integer"},
                                   {"/Value", "0"},
                                   {"/Units", "milliseconds"},
                                   {nullptr, nullptr}};
const tagnval kDeadband[] = {{"/NodeType", "Point"},
                             {"/ValueType", "Real"},
                             {"/Value", "0.0"},
                             {"/Units", "percent"},
                             {nullptr, nullptr}};
const swinfo_template_t kRealTimeNodeTemplates[] = {
    {kSubscriptionsPath, "", kRtNode},
    {kSubscriptionsPath, "/RqstdFreshness", kRqstdFreshness},
    {kSubscriptionsPath, "/Deadband", kDeadband},
};

std::string cutRecordPath(std::string path) {
  if (path.size() > kMaxRecordPath) path.resize(kMaxRecordPath);
  return path;
}

bool present(toolkit::CCds& cds, const std::string& path) {
  api_status_t status;
  return cds.test_node(path, status) == 0 && status == API_STATUS_OK;
}

bool removeNode(toolkit::CCds& cds, const std::string& path, const std::string& source) {
  api_status_t status;
  return cds.remove_node(path, status, false, source) == 0 && status == API_STATUS_OK;
}

// The entry of the subscribed path `path` below the subscription at `sub`. False when the
// path gives no node name, or none is left after the cut: the entry would be RTNodes itself.
bool realTimeNodePath(const std::string& sub, const std::string& path, std::string& entry) {
  std::string name;
  CPath::PathToNodeName(path, name);
  const std::string prefix = sub + "/RTNodes/";
  entry = cutRecordPath(prefix + name);
  return entry.size() > prefix.size();
}

int createNodesFromTemplates(toolkit::CCds& cds, const std::string& path,
                             const swinfo_template_t* templates, size_t count,
                             const std::string& source) {
  CCds_SwInfo info(path, &cds);
  info.SetSource(source);
  for (size_t i = 0; i < count; ++i) {
    const int result = info.FillSwInfoNode(templates[i]);
    if (result != 0) return result;
  }
  return 0;
}

void setRealLeaf(toolkit::CCds& cds, const std::string& path, double value,
                 const std::string& source) {
  toolkit::CElement element;
  element.set_real(value);
  api_status_t status;
  cds.set_leaf(path, element, status, false, source);
}

// The current value of a subscribed path, read as getValue reads it.
RealTimeNodeResult readRealTimeNode(toolkit::CCds& cds, const std::string& path_text,
                                    const RequestOptions& options) {
  RealTimeNodeResult result;
  CPath path(path_text);
  bool is_value = false;
  StoredLeaf leaf;
  if (path.normalize() != 0) {
    formatError(kWsBadPathSyntax, "CDS Error in supplied path", result.value, &options);
  } else {
    element_property_t prop;
    leaf.call_result = cds.get_leaf(path.getPath(), leaf.status, leaf.value, prop);
    leaf.storage = prop.storage;
    bool multistate = false;
    is_value = formatValue(cds, leaf, path, options, result.value, &multistate);
    if (is_value && multistate) {
      result.numeric = leaf.value.get_type() == DATA_TYPE_BOOL ? (leaf.value.to_bool() ? "1" : "0")
                                                               : leaf.value.to_string();
    }
  }
  // An error text (a failed or refused read) tells nothing of the leaf: neither its time
  // nor its device's quality.
  if (!is_value) {
    result.time = vtx_UTCtime64();
    return result;
  }
  result.time = vtx_UNIXtoVTXtime64(&leaf.value.get_time());
  result.quality =
      static_cast<unsigned short>(CCds_Utils(cds).CheckDeviceQuality(path.getNodePath()));
  return result;
}

RealTimeNodeResults subscribeRealTimeNodes(toolkit::CCds& cds,
                                           const std::optional<std::vector<RealTimeNode>>& nodes,
                                           const std::string& sub, const std::string& source) {
  const RequestOptions options = parseOptions(nullptr);
  if (!nodes || nodes->empty()) return std::nullopt;
  std::vector<RealTimeNodeResult> results;
  results.reserve(nodes->size());
  CCds_SwInfo entry_info("", &cds);
  entry_info.SetSource(source);
  for (const RealTimeNode& node : *nodes) {
    std::string entry;
    if (!realTimeNodePath(sub, node.path, entry)) continue;
    if (!present(cds, entry) &&
        createNodesFromTemplates(cds, entry, kRealTimeNodeTemplates,
                                 std::size(kRealTimeNodeTemplates), source) != 0) {
      continue;
    }
    entry_info.SetPath(entry);
    entry_info.SetIntValue("/RqstdFreshness", node.requested_freshness);
    setRealLeaf(cds, entry + "/Deadband/Value", node.deadband_percent, source);
    results.push_back(readRealTimeNode(cds, node.path, options));
  }
  return results;
}

// Steps of createSubscription once the id is known good. Returns 0, or non-zero when the
// record cannot be made: the old one cannot be removed, or a template fails (its value).
int writeSubscription(toolkit::CCds& cds, const SubscriptionRequest& request,
                      const std::string& sub, const std::string& source,
                      RealTimeNodeResults& results) {
  const timeval log_since = vtx_VTXtoUNIXtime64(request.log_since_time);
  CCds_SwInfo publisher(kPublisherPath, &cds);
  publisher.SetSource(source);
  // The publisher is marked busy while its subscriptions change; the publishing service
  // sets its own status again once it has read them.
  publisher.SetAppStatus(APP_STATUS_BUSY);
  // A known id is replaced whole: none of the old real-time nodes survive. A record that
  // cannot be removed cannot be replaced.
  api_status_t removed;
  if (cds.remove_node(sub, removed, false, source) != 0 ||
      (removed != API_STATUS_OK && removed != API_STATUS_NO_NODE)) {
    return kNotWritten;
  }
  const int made = createNodesFromTemplates(cds, sub, kSubscriptionTemplates,
                                            std::size(kSubscriptionTemplates), source);
  if (made != 0) return made;
  if (const char* address = getenv("REMOTE_ADDR")) {
    publisher.PrintString(std::string("New subscription from remote address of ") + address);
  }

  // A failed write leaves the template's default in the record.
  CCds_SwInfo record(sub, &cds);
  record.SetSource(source);
  api_status_t status;
  cds.set_leaf(sub + "/ReplyURI/Value", toolkit::CElement(request.reply_uri), status, false,
               source);
  record.SetIntValue("/LeaseDuration", request.lease_duration);
  toolkit::CElement since;
  since.set_timeval(log_since);
  cds.set_leaf(sub + "/LogSinceTime/Value", since, status, false, source);
  record.SetIntValue("/LogOptions", request.log_options);

  // The counter is bumped before the real-time nodes are written, deliberately: a
  // publishing service that reads the store while the record is written sees the
  // subscription as early as possible. Without the bump it would never learn of it, so the
  // real-time nodes are not worth writing then.
  if (publisher.UpdateIntValue("/SubUpdateCount", 1) != 0) return 0;
  results = subscribeRealTimeNodes(cds, request.nodes, sub, source);
  if (results) record.SetIntValue("/RTNodeCount", static_cast<int>(results->size()));
  return 0;
}

}  // namespace

bool subscriptionPath(const std::string& id, std::string& path) {
  if (id.empty() || id.find('/') != std::string::npos) return false;
  path = cutRecordPath(std::string(kSubscriptionsPath) + "/" + id);
  return true;
}

int createSubscription(toolkit::CCds& cds, const SubscriptionRequest& request,
                       RealTimeNodeResults& results) {
  results.reset();
  if (request.id.empty()) return 0;
  std::string sub;
  if (!subscriptionPath(request.id, sub)) return 1;
  // The whole record in one commit: a thousand real-time nodes cost one commit instead of
  // ten thousand, and a record that cannot be made leaves the store as it was, the record
  // it was to replace included.
  toolkit::CWriteBatch batch(cds);
  const int made = writeSubscription(cds, request, sub, writerSource(), results);
  if (made != 0) {
    batch.rollback();
    return made;
  }
  if (batch.commit() != 0) {
    results.reset();
    return kNotWritten;
  }
  return 0;
}

int updateSubscriptionRealTimeNodes(toolkit::CCds& cds, const std::string& id,
                                    const std::optional<std::vector<RealTimeNode>>& add,
                                    const std::vector<std::string>& remove,
                                    RealTimeNodeResults& results) {
  results.reset();
  if (id.empty()) {
    fputs("updateSubscriptionRealTimeNodes: NULL Subscription ID provided\n", stderr);
    return 1;
  }
  std::string sub;
  if (!subscriptionPath(id, sub) || !present(cds, sub) || !present(cds, sub + "/RTNodes")) {
    results.emplace(1);
    formatError(kWsNoSuchSubscriber, "updateSubscriptionRealTimeNodes() failed",
                results->front().value, nullptr);
    return 0;
  }
  const std::string source = writerSource();
  toolkit::CWriteBatch batch(cds);
  results = subscribeRealTimeNodes(cds, add, sub, source);
  for (const std::string& path : remove) {
    std::string entry;
    if (realTimeNodePath(sub, path, entry)) removeNode(cds, entry, source);
  }
  std::vector<std::string> children;
  // Unread, the count is left as it was rather than set to a number nobody counted.
  if (CPath(sub + "/RTNodes").getAttributeList("Children", cds, children) == 0) {
    CCds_SwInfo record(sub, &cds);
    record.SetSource(source);
    record.SetIntValue("/RTNodeCount", static_cast<int>(children.size()));
  }
  if (batch.commit() != 0) {
    results.reset();
    return kNotWritten;
  }
  return 0;
}

int cancelSubscription(toolkit::CCds& cds, const std::string& id) {
  std::string sub;
  if (!subscriptionPath(id, sub) || !present(cds, sub)) return 1;
  const std::string source = writerSource();
  removeNode(cds, sub, source);
  CCds_SwInfo publisher(kPublisherPath, &cds);
  publisher.SetSource(source);
  publisher.UpdateIntValue("/SubUpdateCount", 1);
  return 0;
}

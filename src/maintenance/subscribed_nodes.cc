#include "maintenance/subscribed_nodes.h"

#include "platform/path.h"
#include "service/errors.h"
#include "service/options.h"
#include "subscriptions/subscriptions.h"
#include "values/array_read.h"

void listSubscribedNodes(toolkit::CCds& cds, const std::string* id,
                         std::vector<std::string>& nodes) {
  nodes.clear();
  std::string error;
  if (id == nullptr) {
    formatError(kWsNoSuchSubscriber, "No subscriptionId given", error, nullptr);
    nodes.push_back(std::move(error));
    return;
  }
  std::string record;
  const bool named = subscriptionPath(*id, record);
  const std::string rt_nodes = record + "/RTNodes";
  api_status_t status = API_STATUS_UNKNOWN;
  if (!named || cds.test_node(rt_nodes, status) != 0 || status != API_STATUS_OK) {
    formatError(kWsNoSuchSubscriber, *id, error, nullptr);
    nodes.push_back(std::move(error));
    return;
  }

  const std::string children_path = rt_nodes + ":Children";
  std::vector<std::string> children;
  readArray(cds, &children_path, parseOptions(nullptr), children);
  // A read that failed (an error text first) answers an empty list, deliberately: the
  // subscription exists, its nodes just cannot be listed now.
  if (children.empty() || children.front().rfind("? ", 0) == 0) return;
  nodes.reserve(children.size());
  for (const std::string& child : children) {
    if (child.rfind('?', 0) == 0) {
      nodes.push_back(child);
    } else {
      nodes.emplace_back();
      CPath::DottedPathToNodePath(child, nodes.back());
    }
  }
}

#include "platform/utils.h"

#include "platform/cds.h"
#include "platform/element.h"
#include "platform/store_internal.h"

int CCds_Utils::GetDeviceList(std::vector<std::string>& devices) {
  devices.clear();
  pcd_connection* c = store::begin_call(cds_.handle());
  if (c == nullptr) return -1;
  std::vector<std::string> nodes;
  if (store::nodes_with_leaf_text(c, "NodeType", "Device", nodes) != 0) return -1;
  // The root is the gateway's own device, whatever its NodeType says; "/" sorts first.
  devices.push_back("/");
  for (std::string& node : nodes) {
    if (node != "/") devices.push_back(std::move(node));
  }
  return static_cast<int>(devices.size());
}

unsigned CCds_Utils::CheckDeviceQuality(const std::string& path) {
  std::string canonical;
  if (!store::canonicalize(path, canonical)) return 0;
  // The node itself and each ancestor up to the root, nearest first, each with its
  // NodeType and .Quality, all read at once.
  std::vector<std::string> nodes;
  for (std::string_view node = canonical;; node = store::node_of(node)) {
    nodes.emplace_back(node);
    if (node == "/") break;
  }
  std::vector<std::string> paths;
  for (const std::string& node : nodes) {
    paths.push_back(store::leaf_path(node, "NodeType"));
    paths.push_back(store::leaf_path(node, ".Quality"));
  }
  std::vector<api_status_t> statuses;
  std::vector<toolkit::CElement> values;
  std::vector<element_property_t> props;
  if (cds_.get_leaves(paths, statuses, values, props) != 0) return 0;
  for (size_t i = 0; i < nodes.size(); ++i) {
    bool device = nodes[i] == "/" ||
                  (statuses[2 * i] == API_STATUS_OK && values[2 * i].to_string() == "Device");
    if (!device) continue;
    return statuses[2 * i + 1] == API_STATUS_OK ? values[2 * i + 1].to_uint() : 0;
  }
  return 0;
}

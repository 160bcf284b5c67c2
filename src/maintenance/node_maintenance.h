// Creating and removing Data store nodes for the maintenance operations (CreateNode and
// RemoveNode). Every change carries writerSource(); errors are result texts made by
// formatError; the functions return a service status: 0, or kMaintenanceUnauthorized when
// the caller lacks the right (no result is given then, and nothing has changed).
#ifndef WSGATE_MAINTENANCE_NODE_MAINTENANCE_H
#define WSGATE_MAINTENANCE_NODE_MAINTENANCE_H

#include <string>
#include <vector>

#include "platform/cds.h"
#include "service/options.h"

// The service status of a maintenance request refused for want of a right.
inline constexpr int kMaintenanceUnauthorized = 401;

// CreateNode: makes the node `base_path` and writes its leaves.
//  - The lists fail the list check of the writes (codes 17, 23, 14): that text.
//  - No `base_path`: code 8 "No node path provided".
//  - The node, `base_path` without one trailing ":" or "/", is kept when it exists and
//    made (with its missing ancestors) otherwise; a failure is code 16 without detail.
//    These three texts are formatted without options.
//  - Leaf i is `base_path` exactly as given followed by paths[i], with no separator added,
//    written with values[i] by the list write core with the maintenance flag set and
//    `options`. `result` is the write result at the index of the last name that is exactly
//    "Value" (index 0 when none is; "" when the core gave fewer results).
// Without the write right on the node or on any leaf path that normalizes, nothing is made
// and the status is kMaintenanceUnauthorized.
int createNode(toolkit::CCds& cds, const std::string* base_path,
               const std::vector<std::string>& paths, const std::vector<std::string>& values,
               const RequestOptions& options, std::string& result);

// RemoveNode: a `base_path` with a ":" names an attribute leaf, which is cleared (its
// normalized path); any other names a node, which is removed with its subtree (the path as
// given). Both honour the persist option.
//  - A path that does not normalize (or none): code 8 "CDS Error in supplied path".
//  - Without the remove right on the normalized path: kMaintenanceUnauthorized.
//  - The store refused (no such node or leaf, the root): code 9 "CDS Error removing node".
// On success `result` is "".
int removeNode(toolkit::CCds& cds, const std::string* base_path, const RequestOptions& options,
               std::string& result);

#endif  // WSGATE_MAINTENANCE_NODE_MAINTENANCE_H

// `cds ls`, `tree`, `mkdir` and `rm`: browsing and shaping the node tree.
#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "platform/path.h"
#include "tools/commands.h"
#include "tools/format.h"

namespace cdstool {
namespace {

std::vector<std::string> children(Context& ctx, const std::string& node) {
  std::vector<std::string> paths;
  api_status_t status = API_STATUS_UNKNOWN;
  int result = ctx.cds.list_children(node, paths, status);
  checkStatus(result, status, node);
  return paths;
}

std::vector<toolkit::leaf_record_t> leaves(Context& ctx, const std::string& node) {
  std::vector<toolkit::leaf_record_t> records;
  api_status_t status = API_STATUS_UNKNOWN;
  int result = ctx.cds.list_leaves(node, records, status);
  checkStatus(result, status, node);
  return records;
}

int runLs(Context& ctx, const ParsedArgs& args) {
  const std::string& node = args.positional[0];
  std::vector<std::string> child_paths = children(ctx, node);
  std::vector<toolkit::leaf_record_t> records = leaves(ctx, node);
  for (const std::string& child : child_paths) ctx.out << baseName(child) << "/\n";
  size_t name_width = 0;
  for (const auto& leaf : records) name_width = std::max(name_width, leaf.name.size());
  for (const auto& leaf : records) {
    std::string type = typeName(leaf.value.get_type());
    ctx.out << leaf.name << std::string(name_width - leaf.name.size() + 2, ' ') << type
            << std::string(type.size() < 11 ? 11 - type.size() : 1, ' ') << leaf.value.to_string()
            << "\n";
  }
  return kExitOk;
}

void printSubtree(Context& ctx, const std::string& node, size_t depth, bool values) {
  std::string indent(2 * depth, ' ');
  for (const auto& leaf : leaves(ctx, node)) {
    ctx.out << indent << leaf.name;
    if (values) {
      ctx.out << " = " << leaf.value.to_string() << " (" << typeName(leaf.value.get_type()) << ")";
    }
    ctx.out << "\n";
  }
  for (const std::string& child : children(ctx, node)) {
    ctx.out << indent << baseName(child) << "/\n";
    printSubtree(ctx, child, depth + 1, values);
  }
}

int runTree(Context& ctx, const ParsedArgs& args) {
  const std::string& node = args.positional[0];
  api_status_t status = API_STATUS_UNKNOWN;
  int result = ctx.cds.test_node(node, status);
  checkStatus(result, status, node);
  ctx.out << node << "\n";
  printSubtree(ctx, node, 1, args.has("--values"));
  return kExitOk;
}

int runMkdir(Context& ctx, const ParsedArgs& args) {
  for (const std::string& node : args.positional) {
    api_status_t status = API_STATUS_UNKNOWN;
    int result = ctx.cds.add_node(node, status, ctx.source);
    checkStatus(result, status, node);
  }
  return kExitOk;
}

// Removes the node `text` names with its subtree, or else the leaf it names. Returns false
// when there is neither.
bool removeNodeOrLeaf(Context& ctx, const std::string& text) {
  api_status_t status = API_STATUS_UNKNOWN;
  int result = ctx.cds.test_node(text, status);
  if (result == 0 && status == API_STATUS_OK) {
    if (text == "/") throw OperationError(errorText(text, "the root node cannot be removed"));
    result = ctx.cds.remove_node(text, status, false, ctx.source);
    checkStatus(result, status, text);
    return true;
  }
  // Not a node: a leaf path, possibly written "NODE:ATTR".
  CPath path(text);
  if (path.normalize() != 0) throw OperationError(errorText(text, "malformed path"));
  if (path.hasSubAttribute()) {
    throw OperationError(errorText(text, "a sub-attribute cannot be removed"));
  }
  result = ctx.cds.clear_leaf(path.getPath(), status, false, ctx.source);
  if (result == 0 && (status == API_STATUS_NO_LEAF || status == API_STATUS_NO_NODE)) return false;
  checkStatus(result, status, path.getPath());
  return true;
}

int runRm(Context& ctx, const ParsedArgs& args) {
  int exit_code = kExitOk;
  for (const std::string& text : args.positional) {
    try {
      if (!removeNodeOrLeaf(ctx, text) && !args.has("-f")) {
        throw OperationError(errorText(text, "no such node or leaf"));
      }
    } catch (const OperationError& e) {
      ctx.err << e.what() << "\n";
      exit_code = kExitFailed;
    }
  }
  return exit_code;
}

}  // namespace

Command lsCommand() {
  return {"ls",
          "PATH",
          "Lists the node's children (with a trailing \"/\") and then its stored leaves with\n"
          "their types and values.",
          {},
          1,
          1,
          runLs};
}

Command treeCommand() {
  return {"tree",
          "PATH [--values]",
          "Prints the node's subtree, indented two spaces per level: each node's leaves, then\n"
          "its children (with a trailing \"/\").\n"
          "  --values  also print each leaf's value and type",
          {{"--values", false}},
          1,
          1,
          runTree};
}

Command mkdirCommand() {
  return {"mkdir",
          "PATH...",
          "Creates each node together with any missing ancestors; an existing node is left\n"
          "as it is.",
          {},
          1,
          SIZE_MAX,
          runMkdir};
}

Command rmCommand() {
  return {"rm",
          "[-f] PATH...",
          "Removes each node with everything below it, or, when PATH is not a node, the one\n"
          "leaf it names (\"NODE/LEAF\" or \"NODE:LEAF\"). The root node cannot be removed.\n"
          "  -f  no error for a path that names neither a node nor a leaf",
          {{"-f", false}},
          1,
          SIZE_MAX,
          runRm};
}

}  // namespace cdstool

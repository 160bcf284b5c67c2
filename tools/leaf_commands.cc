// `cds get` and `cds set`: reading and writing single leaves.
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/element.h"
#include "platform/multistate.h"
#include "platform/path.h"
#include "tools/commands.h"
#include "tools/format.h"

namespace cdstool {
namespace {

// One leaf as read, with the path it was read under.
struct LeafRead {
  CPath path;
  toolkit::CElement value;
  element_property_t prop;
};

// Normalises `text` the way the services do; the root alone stands for its Value leaf
// here, as every other node path does.
CPath normalizedPath(const std::string& text) {
  CPath path(text);
  if (path.normalize() != 0) throw OperationError(errorText(text, "malformed path"));
  if (path.getPath() == "/") {
    CPath root_value(path.hasSubAttribute() ? "/Value" + path.getSubAttribute() : "/Value");
    root_value.normalize();
    return root_value;
  }
  return path;
}

LeafRead readLeaf(Context& ctx, const std::string& text) {
  LeafRead leaf{normalizedPath(text), {}, {}};
  api_status_t status = API_STATUS_UNKNOWN;
  int result = ctx.cds.get_leaf(leaf.path.getPath(), status, leaf.value, leaf.prop);
  checkLeafStatus(result, status, leaf.path.getPath());
  return leaf;
}

// The display text of a Value leaf of a multistate or boolean node; false when the leaf
// has none (another attribute, another type, or an integer node without a list).
bool displayText(Context& ctx, const LeafRead& leaf, std::string& text) {
  std::string attribute = leaf.path.getPathAttribute();
  if (attribute != "Value" && attribute != ".AlarmOnValue") return false;
  CCds_Multistate multistate(ctx.cds);
  std::string node = leaf.path.getNodePath();
  data_type_t type = leaf.value.get_type();
  if (type == DATA_TYPE_BOOL) {
    return multistate.GetBoolStringValue(node, leaf.value.to_bool(), text) == 0;
  }
  std::string key;
  if ((type == DATA_TYPE_INT || type == DATA_TYPE_UINT) &&
      multistate.IsMultistate(node, true, key)) {
    multistate.GetStringValue(key, leaf.value.to_int(), text);
    return true;
  }
  return false;
}

// What `get` prints for one path: the value text, or the sub-attribute's text. The
// sub-attributes match by their beginning (".Timestamp" reads as ".Time"), as the data
// server reads them.
std::string shortForm(Context& ctx, const LeafRead& leaf, bool texts) {
  const std::string& suffix = leaf.path.getSubAttribute();
  if (suffix.empty()) {
    std::string text;
    if (texts && displayText(ctx, leaf, text)) return text;
    return leaf.value.to_string();
  }
  if (suffix.compare(0, 5, ".Time") == 0) return std::to_string(leafTime(leaf.value));
  if (suffix.compare(0, 7, ".Source") == 0) return storageName(leaf.prop.storage);
  if (suffix.compare(0, 11, ".AttribType") == 0) return typeName(leaf.value.get_type());
  throw OperationError(errorText(leaf.path.getPath() + suffix, "unknown sub-attribute " + suffix));
}

void printLongForm(Context& ctx, const LeafRead& leaf) {
  const std::string& path = leaf.path.getPath();
  api_status_t status = API_STATUS_UNKNOWN;
  std::string source;
  // Automatic attributes have no writer; an unreadable source prints empty.
  if (ctx.cds.get_leaf_source(path, status, source) != 0 || status != API_STATUS_OK) source.clear();
  int64_t time = leafTime(leaf.value);
  ctx.out << "path:    " << path << "\n"
          << "type:    " << typeName(leaf.value.get_type()) << "\n"
          << "value:   " << leaf.value.to_string() << "\n";
  std::string text;
  if (displayText(ctx, leaf, text)) ctx.out << "text:    " << text << "\n";
  ctx.out << "time:    " << isoTime(time) << " (" << time << ")\n"
          << "storage: " << storageName(leaf.prop.storage) << "\n"
          << "source:  " << source << "\n";
}

int runGet(Context& ctx, const ParsedArgs& args) {
  int exit_code = kExitOk;
  bool first = true;
  for (const std::string& text : args.positional) {
    try {
      LeafRead leaf = readLeaf(ctx, text);
      if (args.has("-l")) {
        if (!first) ctx.out << "\n";
        printLongForm(ctx, leaf);
      } else {
        ctx.out << shortForm(ctx, leaf, args.has("-t")) << "\n";
      }
      first = false;
    } catch (const OperationError& e) {
      // One unreadable path does not hide the others.
      ctx.out.flush();
      ctx.err << e.what() << "\n";
      exit_code = kExitFailed;
    }
  }
  return exit_code;
}

int runSet(Context& ctx, const ParsedArgs& args) {
  const std::string& path_text = args.positional[0];
  const std::string& type_text = args.positional[1];
  const std::string& value_text = args.positional[2];
  data_type_t type = pcd_human_str_to_enum(type_text.c_str());
  if (type == DATA_TYPE_NONE) {
    throw UsageError("unknown type \"" + type_text +
                     "\" (Boolean, Integer, Unsigned, Real, Integer64, String, Unsigned64, "
                     "timeval)");
  }
  CPath path = normalizedPath(path_text);
  if (path.hasSubAttribute()) {
    throw OperationError(
        errorText(path_text, "the sub-attribute " + path.getSubAttribute() + " is not writable"));
  }
  toolkit::CElement value(value_text);
  if (value.convert_type(type) != 0) {
    throw UsageError(path_text + ": \"" + value_text + "\" is not a valid " + typeName(type),
                     false);
  }
  api_status_t status = API_STATUS_UNKNOWN;
  int result = ctx.cds.set_leaf(path.getPath(), value, status, args.has("--persist"), ctx.source);
  checkLeafStatus(result, status, path.getPath());
  return kExitOk;
}

}  // namespace

Command getCommand() {
  return {"get",
          "[-l | -t] PATH...",
          "Prints the value text of each leaf, one per line. A node path reads its Value leaf;\n"
          "\"NODE:ATTR\" reads the attribute ATTR; a suffix .Time prints the leaf's time stamp\n"
          "(platform time, milliseconds since 1970), .Source its storage class, .AttribType\n"
          "its type name.\n"
          "  -t  print the display text of multistate and boolean values (\"Auto\", \"Closed\")\n"
          "  -l  long form: path, type, value, display text, time, storage class and the\n"
          "      source text of the last writer\n"
          "A path that cannot be read is reported and the others are still printed.",
          {{"-l", false}, {"-t", false}},
          1,
          SIZE_MAX,
          runGet};
}

Command setCommand() {
  return {"set",
          "PATH TYPE VALUE [--persist]",
          "Writes one leaf of an existing node. TYPE is one of Boolean, Integer, Unsigned,\n"
          "Real, Integer64, String, Unsigned64, timeval (any case); VALUE is converted to it\n"
          "(Boolean: true/false/1/0; timeval: platform time in milliseconds). A node path\n"
          "writes its Value leaf.\n"
          "  --persist  make the leaf Persistent",
          {{"--persist", false}},
          3,
          3,
          runSet};
}

}  // namespace cdstool

// `cds import` and `cds export`: the JSON interchange document in and out of the store.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "tools/commands.h"
#include "tools/interchange.h"

namespace cdstool {
namespace {

void writeOutput(Context& ctx, const std::string& file, const std::string& text) {
  if (file == "-") {
    ctx.out << text;
    return;
  }
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (!out) throw OperationError(errorText(file, std::strerror(errno)));
  out << text;
  out.close();
  if (!out) throw OperationError(errorText(file, "write error"));
}

int runImport(Context& ctx, const ParsedArgs& args) {
  const std::string& file = args.positional[0];
  Document doc;
  std::string error;
  if (!parseDocument(readInput(file), doc, error)) {
    throw OperationError(errorText(file == "-" ? "stdin" : file, error));
  }
  importDocument(ctx.cds, doc, ctx.source);
  ctx.out << "imported " << doc.nodes.size() << " nodes, " << doc.leaves.size() << " leaves, "
          << doc.rights.size() << " rights\n";
  return kExitOk;
}

int runExport(Context& ctx, const ParsedArgs& args) {
  Document doc;
  collectSubtree(ctx.cds, args.positional[0], doc);
  writeOutput(ctx, args.positional.size() > 1 ? args.positional[1] : "-", documentJson(doc));
  return kExitOk;
}

}  // namespace

Command importCommand() {
  return {"import",
          "FILE|-",
          "Reads a JSON interchange document (from standard input for \"-\") and writes it\n"
          "in one transaction: when any item is wrong nothing changes, and the error names\n"
          "the item. The document:\n"
          "  {\"nodes\": [\"/A\", ...],\n"
          "   \"leaves\": [{\"path\": \"/A/B/Value\", \"type\": \"Real\", \"value\": \"1.5\",\n"
          "               \"storage\": \"Normal\", \"time\": 1700000000000}, ...],\n"
          "   \"rights\": [{\"user\": \"*\", \"prefix\": \"/\", \"rights\": \"r\"}, ...]}\n"
          "Every key is optional; a leaf's node is created as needed, \"storage\" defaults\n"
          "to Normal and \"time\" (platform time in milliseconds) to now.",
          {},
          1,
          1,
          runImport};
}

Command exportCommand() {
  return {"export",
          "PATH [FILE|-]",
          "Writes the subtree at PATH as a JSON interchange document (see `cds import\n"
          "--help`) to FILE or standard output: every node, every stored leaf with its type,\n"
          "value, storage class and time, and the rights rules whose prefix lies in the\n"
          "subtree. Importing it and exporting again gives the same document.",
          {},
          1,
          2,
          runExport};
}

}  // namespace cdstool

// The demo gateway that `cds demo` builds: devices, points of every type, multistate and
// boolean points, alarm limits, the alarm table, command areas, the subscription publisher's
// records and the rights of the web front's demo users. docs/demo.md describes it.
#ifndef WSGATE_TOOLS_DEMO_H
#define WSGATE_TOOLS_DEMO_H

#include <string>
#include <vector>

#include "tools/interchange.h"

namespace cdstool {

// Fills `doc` with the whole demo gateway, ready for one import.
void buildDemo(Document& doc);

// The subtrees the demo owns: `demo --force` removes them before building again. The
// root's own leaves are not listed; the import overwrites them.
const std::vector<std::string>& demoSubtrees();

}  // namespace cdstool

#endif  // WSGATE_TOOLS_DEMO_H

// The commands of the `cds` tool, one table entry each; main dispatches on the name.
#ifndef WSGATE_TOOLS_COMMANDS_H
#define WSGATE_TOOLS_COMMANDS_H

#include "tools/cli.h"

namespace cdstool {

// Leaves: leaf_commands.cc.
Command getCommand();
Command setCommand();
// Nodes: node_commands.cc.
Command lsCommand();
Command treeCommand();
Command mkdirCommand();
Command rmCommand();
// Interchange documents: transfer_commands.cc.
Command importCommand();
Command exportCommand();
// Rights, event queue and system log: admin_commands.cc.
Command rightsCommand();
Command eventsCommand();
Command syslogCommand();
// Event logs and the trend log: log_commands.cc.
Command logCommand();
Command trendCommand();
// The demo gateway: demo.cc; its device handler: handler.cc.
Command demoCommand();
Command handlerCommand();

}  // namespace cdstool

#endif  // WSGATE_TOOLS_COMMANDS_H

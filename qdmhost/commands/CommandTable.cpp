// The command table: one line per command, in the order of --help. Each
// entry is defined beside its command's code, in this folder.
#include "commands/CommandTable.h"

namespace qdmcli {

Command InventoryCommand();
Command UpdateCommand();
Command ReportCommand();
Command CheckCommand();
Command HistoryCommand();
Command TrustCommand();
Command MetricsCommand();

const std::vector<Command>& CommandTable() {
    static const std::vector<Command> table = {InventoryCommand(), UpdateCommand(),  ReportCommand(), CheckCommand(),
                                               HistoryCommand(),   TrustCommand(),   MetricsCommand()};
    return table;
}

}  // namespace qdmcli

// The one executable: with a subcommand it works headless (cli/), without one it opens the window
// (app/). The only place that sees both front ends.
#include "app/application.h"
#include "cli/cli.h"

int main(int argc, char **argv)
{
    if (argc > 1 && Cli::isSubcommand(argv[1]))
        return Cli::run(argc, argv);
    return runApplication(argc, argv);
}

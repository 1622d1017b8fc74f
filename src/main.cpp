#include "app/application.h"
#include "cli/cli.h"

int main(int argc, char **argv)
{
    if (argc > 1 && Cli::isSubcommand(argv[1]))
        return Cli::run(argc, argv);
    return runApplication(argc, argv);
}

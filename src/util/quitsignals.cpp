#include "quitsignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {
int g_quitPipe[2] = {-1, -1};
}

void QuitSignals::install()
{
    if (g_quitPipe[0] >= 0 || ::pipe2(g_quitPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    auto *notifier = new QSocketNotifier(g_quitPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [] {
        char c;
        while (::read(g_quitPipe[0], &c, 1) > 0) {
        }
        QCoreApplication::quit();
    });
    struct sigaction sa = {};
    sa.sa_handler = [](int) {
        const char c = 'q';
        [[maybe_unused]] const ssize_t n = ::write(g_quitPipe[1], &c, 1);
    };
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    for (int sig : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(sig, &sa, nullptr);
}

#include "application.h"

#include "darktheme.h"
#include "mainwindow.h"
#include "singleinstance.h"

#include "imaging/diskimagecache.h"
#include "imaging/imagepipeline.h"
#include "marks/marksstore.h"
#include "browser/appstate.h"
#include "browser/browsersession.h"
#include "util/quitsignals.h"
#include "util/settings.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QScreen>
#include <QTimer>

namespace {

// Where to start when no location was given: the folder chosen in Ajustes, else the last one.
QString startFolder()
{
    for (const QString &folder : {Settings::startFolder.get(), Settings::lastFolder.get()})
        if (!folder.isEmpty() && QFileInfo(folder).isDir())
            return folder;
    return {};
}

// CORVANE_SCREENSHOT=/path.png: save a picture of the window once the folder has settled, then
// quit. For the README, run under a virtual X server by scripts/screenshot.
void armScreenshot(MainWindow &window, AppState &state, const QString &path)
{
    auto shoot = [&window, path] {
        window.grab().save(path);
        QCoreApplication::quit();
    };
    auto *timer = new QTimer(&window);
    timer->setSingleShot(true);
    timer->setInterval(1500);
    QObject::connect(timer, &QTimer::timeout, &window, shoot);
    QObject::connect(&state, &AppState::loaded, timer, qOverload<>(&QTimer::start));
    // Nothing to load (no folder, or a bad one): shoot anyway.
    QTimer::singleShot(15000, &window, shoot);
    if (QScreen *screen = window.screen())
        window.setGeometry(screen->availableGeometry().adjusted(20, 20, -20, -20));
    // The picture shows the whole window: the info panel too.
    if (QAction *info = window.action(QStringLiteral("infoPanel")); info && !info->isChecked())
        info->setChecked(true);
}

} // namespace

int runApplication(int argc, char **argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.1"));
    QGuiApplication::setDesktopFileName(QStringLiteral("corvane"));
    DarkTheme::apply(app);
    // Through the event loop, so aboutToQuit still writes the pending marks.
    QuitSignals::install();

    bool newInstance = false;
    QStringList paths;
    const QStringList args = app.arguments().mid(1);
    for (const QString &arg : args) {
        if (arg == QLatin1String("--new-instance"))
            newInstance = true;
        else if (!arg.startsWith(QLatin1String("--")))
            paths << QFileInfo(QDir::current(), arg).absoluteFilePath();   // the receiver has another cwd
    }

    SingleInstance instance(SingleInstance::defaultName());
    if (!newInstance) {
        if (instance.sendToRunning(paths))
            return 0;
        instance.listen();
    }

    BrowserSession session;
    AppState &state = session.state();
    MarksStore &store = session.store();
    MainWindow window(session);
    window.usePipeline(ImagePipeline::shared());
    // Old thumbnails and previews go in the background; nobody waits for it.
    DiskImageCache::pruneAtLaunch();

    QObject::connect(&instance, &SingleInstance::pathsReceived, &window, [&](const QStringList &received) {
        if (!received.isEmpty())
            window.closeSheets();
        for (const QString &path : received)
            state.open(path);
        window.raiseAndActivate();
    });
    // Pending marks reach the disk however the program ends.
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &store, [&store] { store.flush(); });

    if (const QString shot = qEnvironmentVariable("CORVANE_SCREENSHOT"); !shot.isEmpty())
        armScreenshot(window, state, shot);
    window.show();

    if (!paths.isEmpty()) {
        for (const QString &path : std::as_const(paths))
            state.open(path);
    } else if (const QString folder = startFolder(); !folder.isEmpty()) {
        state.openFolder(folder);
    }
    return app.exec();
}

#pragma once
// The browser window as the application builds it, on a real folder, driven by keys.
#include "app/gridmodel.h"
#include "app/gridview.h"
#include "app/mainwindow.h"
#include "browser/appstate.h"
#include "browser/browsersession.h"
#include "marks/marksstore.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>

#include <functional>

// Everything the application creates, in its order; the window goes first on destruction.
struct WindowSession {
    BrowserSession session;
    AppState &state = session.state();
    MarksStore &store = session.store();
    MainWindow window{session};

    // `prepare` runs before the window shows (to give it the image pipeline, say).
    explicit WindowSession(const QString &folder = {}, const std::function<void(MainWindow &)> &prepare = {})
    {
        if (prepare)
            prepare(window);
        window.resize(1200, 800);
        window.show();
        window.activateWindow();
        if (!QTest::qWaitForWindowActive(&window))
            qWarning("window not active: window shortcuts will not fire");
        if (!folder.isEmpty() && !open(folder))
            qWarning("the folder did not load");
    }

    bool open(const QString &folder)
    {
        QSignalSpy loaded(&state, &AppState::loaded);
        state.openFolder(folder);
        return loaded.wait(5000);
    }

    // A key as the keyboard delivers it: to whatever has the focus, window shortcuts first.
    void press(Qt::Key key, Qt::KeyboardModifiers mods = Qt::NoModifier)
    {
        QWidget *target = QApplication::focusWidget();
        QTest::keyClick(target ? target : &window, key, mods);
    }

    GridView *grid() const { return window.grid(); }
    GridModel *model() const { return grid()->gridModel(); }
};

#pragma once
// What the camera tests share: the browser's session, as the window has one, and a small whole
// JPEG whose bytes say which one it is.
#include "browser/appstate.h"
#include "browser/browsersession.h"

#include <QSignalSpy>

namespace CameraTest {

struct Browser {
    BrowserSession session;
    AppState &state = session.state();
    MarksStore &store = session.store();
    bool open(const QString &folder)
    {
        QSignalSpy loaded(&state, &AppState::loaded);
        state.openFolder(folder);
        return loaded.wait(5000);
    }
    Photo *shot(const QString &name) const
    {
        for (const PhotoPtr &p : state.photos())
            if (p->name() == name)
                return p.get();
        return nullptr;
    }
};

inline QByteArray jpegBytes(char tag)
{
    return QByteArray("\xFF\xD8\xFF\xFE\x00\x04xx\xFF\xDA\x00\x02", 12) + QByteArray(5000, tag) + QByteArray("\xFF\xD9", 2);
}

} // namespace CameraTest

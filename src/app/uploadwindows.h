#pragma once
// The window's side of sending: "Enviar…" (the sheet), "Cola de envíos" (the panel, which also
// opens when a job is sent) and "Servidores…" (the servers page in a dialog of its own). Made
// once by the main window with its actions; it connects them and owns nothing else of the window.
// GUI thread only.
#include "uploadqueuepanel.h"
#include "uploadsheet.h"

#include <QAction>
#include <QHash>
#include <QObject>
#include <QPointer>

class BrowserSession;

class UploadWindows : public QObject
{
    Q_OBJECT
public:
    UploadWindows(QWidget *window, BrowserSession &session, const QHash<QString, QAction *> &actions);

    void showSend();
    void showQueue();
    void showServers();

    UploadSheet *sheet() const { return _sheet; }
    UploadQueuePanel *panel() const { return _panel; }
    QDialog *serversDialog() const { return _servers; }

private:
    QWidget *_window;
    BrowserSession &_session;
    QPointer<UploadSheet> _sheet;
    QPointer<UploadQueuePanel> _panel;
    QPointer<QDialog> _servers;
};

#include "uploadwindows.h"

#include "serverspage.h"
#include "uploadqueuepanel.h"
#include "uploadsheet.h"

#include "browser/browsersession.h"
#include "browser/uploadcenter.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QVBoxLayout>

UploadWindows::UploadWindows(QWidget *window, BrowserSession &session, const QHash<QString, QAction *> &actions)
    : QObject(window), _window(window), _session(session)
{
    _session.uploads();   // the queue starts now, so what a crash or a quit left pending goes on

    if (QAction *a = actions.value(QStringLiteral("send")))
        connect(a, &QAction::triggered, this, &UploadWindows::showSend);
    if (QAction *a = actions.value(QStringLiteral("uploadQueue")))
        connect(a, &QAction::triggered, this, &UploadWindows::showQueue);
    if (QAction *a = actions.value(QStringLiteral("servers")))
        connect(a, &QAction::triggered, this, &UploadWindows::showServers);
}

void UploadWindows::showSend()
{
    if (!_sheet) {
        _sheet = new UploadSheet(_session.state(), _session.uploads(), _window);
        _sheet->setAttribute(Qt::WA_DeleteOnClose);
        connect(_sheet, &UploadSheet::sent, this, &UploadWindows::showQueue);
        connect(_sheet, &UploadSheet::serversWanted, this, &UploadWindows::showServers);
    }
    _sheet->open();
    _sheet->raise();
}

void UploadWindows::showQueue()
{
    if (!_panel) {
        _panel = new UploadQueuePanel(_session.uploads().queue(), _window);
        _panel->setAttribute(Qt::WA_DeleteOnClose);
    }
    _panel->show();
    _panel->raise();
}

void UploadWindows::showServers()
{
    if (!_servers) {
        _servers = new QDialog(_window);
        _servers->setObjectName(QStringLiteral("serversDialog"));
        _servers->setWindowTitle(QStringLiteral("Servidores"));
        _servers->setAttribute(Qt::WA_DeleteOnClose);
        auto *page = new ServersPage(_session.hasCameraHub() ? &_session.cameraHub() : nullptr, _servers);
        auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, _servers);
        auto *body = new QVBoxLayout(_servers);
        body->addWidget(page);
        body->addWidget(buttons);
        connect(buttons, &QDialogButtonBox::rejected, _servers, &QDialog::close);
        connect(page, &ServersPage::serversChanged, this, [this] {
            if (_sheet)
                _sheet->reloadServers();
        });
        _servers->resize(760, 480);
    }
    _servers->show();
    _servers->raise();
}

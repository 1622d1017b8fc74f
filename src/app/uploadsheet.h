#pragma once
// "Enviar": which shots (the selection, the flagged ones or one colour), to which server, and how
// (only the JPEG of a RAW+JPEG pair; resized to a long side at a quality). The job goes to the
// upload queue and the sheet closes. GUI thread only.
#include <QDialog>

class AppState;
class Photo;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QRadioButton;
class QSpinBox;
class UploadCenter;

class UploadSheet : public QDialog
{
    Q_OBJECT
public:
    UploadSheet(AppState &state, UploadCenter &center, QWidget *parent = nullptr);

    // The shots the choice names now.
    QList<Photo *> chosen() const;
    void reloadServers();

    QRadioButton *selectionRadio() const { return _selection; }
    QRadioButton *flaggedRadio() const { return _flagged; }
    QRadioButton *colorRadio() const { return _color; }
    QComboBox *colorCombo() const { return _colors; }
    QComboBox *serverCombo() const { return _server; }
    QCheckBox *jpegOnlyBox() const { return _jpegOnly; }
    QCheckBox *resizeBox() const { return _resize; }
    QSpinBox *longSideSpin() const { return _longSide; }
    QSpinBox *qualitySpin() const { return _quality; }
    QPushButton *sendButton() const { return _send; }

signals:
    // The job is in the queue.
    void sent(const QString &jobId);
    void serversWanted();

private:
    void refresh();
    void send();

    AppState &_state;
    UploadCenter &_center;
    QRadioButton *_selection, *_flagged, *_color;
    QComboBox *_colors, *_server;
    QCheckBox *_jpegOnly, *_resize;
    QSpinBox *_longSide, *_quality;
    QLabel *_summary;
    QPushButton *_send;
};

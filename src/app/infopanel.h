#pragma once
// The info panel (I): capture data of the current shot, its files and the sharpness verdict, and
// its IPTC texts (of its files and its sidecar), read on a worker a moment after the shot is
// shown, so moving through the grid never waits on the disk. GUI thread only.
#include "metadata/iptcfields.h"

#include <QFutureWatcher>
#include <QUuid>
#include <QWidget>
#include <optional>

class AppState;
class QVBoxLayout;
class QLabel;

class InfoPanel : public QWidget
{
    Q_OBJECT
public:
    explicit InfoPanel(AppState &state, QWidget *parent = nullptr);

    // The value shown for a row ("Cámara", "Objetivo", "Exposición", "Fecha", "Dimensiones",
    // "Tamaño", "Ruta", "Nitidez", and the IPTC fields by their Spanish names: "Autor",
    // "Palabras clave"…); empty when the row is hidden.
    QString value(const QString &row) const;

protected:
    void showEvent(QShowEvent *event) override;

    // The IPTC texts shown are those of the shot on screen (tests wait for this).
    bool iptcCurrent() const;

private:
    void refresh();
    void readIptc();
    QLabel *addRow(const QString &title);

    AppState &_state;
    QLabel *_title;
    struct Row {
        QString title;
        QLabel *value;
        QLabel *name;
    };
    QVBoxLayout *_form;
    QList<Row> _rows;

    class QTimer *_iptcDelay;
    QFutureWatcher<std::optional<IptcValues>> _iptcWatcher;
    QUuid _iptcShot;                       // whose texts _iptc holds (null: nobody's yet)
    QUuid _iptcReading;                    // whose texts are being read
    std::optional<IptcValues> _iptc;
};

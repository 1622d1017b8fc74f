#pragma once
// The info panel (I): capture data of the current shot, its files and the sharpness verdict.
// GUI thread only.
#include <QWidget>

class AppState;
class QVBoxLayout;
class QLabel;

class InfoPanel : public QWidget
{
    Q_OBJECT
public:
    explicit InfoPanel(AppState &state, QWidget *parent = nullptr);

    // The value shown for a row ("Cámara", "Objetivo", "Exposición", "Fecha", "Dimensiones",
    // "Tamaño", "Ruta", "Nitidez"); empty when the row is hidden.
    QString value(const QString &row) const;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void refresh();
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
};

#pragma once
// The import window's last page: the outcome, a box per destination with its counts and errors,
// the card's ejection, and what to do next ("Verificar ahora", "Abrir en Corvane", "Importar
// más", "Cerrar"). GUI thread only.
#include <QWidget>

struct IngestReport;
class QLabel;
class QPushButton;

class ImportSummaryPage : public QWidget
{
    Q_OBJECT
public:
    explicit ImportSummaryPage(QWidget *parent = nullptr);

    void showReport(const IngestReport &report);

    QLabel *summaryTitle() const { return _title; }
    QLabel *summaryBody() const { return _body; }
    QString destinationsText() const;   // every destination box, as plain text
    QLabel *ejectLabel() const { return _ejectResult; }
    QPushButton *verifyNowButton() const { return _verifyNow; }
    QPushButton *openResultButton() const { return _openResult; }
    QPushButton *againButton() const { return _again; }
    QPushButton *closeButton() const { return _close; }

signals:
    void verifyNowRequested();
    void openRequested();
    void againRequested();
    void closeRequested();

private:
    QLabel *_title = nullptr;
    QLabel *_body = nullptr;
    QWidget *_destBoxes = nullptr;
    QLabel *_ejectResult = nullptr;
    QPushButton *_verifyNow = nullptr;
    QLabel *_verifyNowNote = nullptr;
    QPushButton *_openResult = nullptr;
    QPushButton *_again = nullptr;
    QPushButton *_close = nullptr;
};

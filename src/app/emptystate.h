#pragma once
// What the centre of the window says when there is nothing to show, and the one action that
// gets the user going again.
#include <QWidget>

class QLabel;
class QPushButton;

class EmptyState : public QWidget
{
    Q_OBJECT
public:
    enum Kind { NoFolder, EmptyFolder, AccessDenied, FolderMissing, AllFiltered };

    explicit EmptyState(QWidget *parent = nullptr);

    // `detail` overrides the kind's second line when given.
    void setKind(Kind kind, const QString &detail = {});
    Kind kind() const { return _kind; }
    QString title() const;
    QString detail() const;

signals:
    void openFolderRequested();
    void clearFilterRequested();

private:
    Kind _kind = NoFolder;
    QLabel *_title;
    QLabel *_detail;
    QPushButton *_button;
};

#pragma once
// One shot of the open folder. Owned and touched only by the GUI thread (through AppState); the
// other threads see copies of the paths they need, never the record.
#include "colorclass.h"
#include "crop.h"
#include "facet.h"
#include "photometa.h"
#include "scanneditem.h"

#include <QDateTime>
#include <QImage>
#include <QList>
#include <QPointF>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <memory>
#include <optional>

class Photo
{
public:
    explicit Photo(const ScannedItem &item);

    const QUuid id = QUuid::createUuid();

    // Files of the shot
    const QString &url() const { return _url; }
    const QString &previewURL() const { return _previewURL; }
    const QString &sidecarURL() const { return _sidecarURL; }
    const QStringList &files() const { return _files; }
    const QString &name() const { return _name; }
    void setFiles(const ScannedItem &item);   // after a rename, a move or a late member

    bool previewIsRaw = false;
    QString badge;
    QString dirPath;
    mutable std::optional<QString> searchCache;   // built on first use by the text filter
    QSet<QUuid> personIDs;
    bool offline = false;
    QImage catalogThumb;
    QString volumeName;

    // Marks
    ColorClass colorClass() const { return _colorClass; }
    void setColorClass(ColorClass c) { _colorClass = c; }
    int rating() const { return _rating; }
    void setRating(int r) { _rating = r < 0 ? 0 : (r > 5 ? 5 : r); }
    bool tagged() const { return _tagged; }
    void setTagged(bool t) { _tagged = t; }
    int rotation() const { return _rotation; }
    void setRotation(int quarterTurns) { _rotation = ((quarterTurns % 4) + 4) % 4; }
    const std::optional<CropSpec> &crop() const { return _crop; }
    void setCrop(std::optional<CropSpec> c) { _crop = c; }

    // No file of the shot can be read as an image (empty, cut short, not what its name says):
    // on a card, the sign of a failed write.
    bool damaged() const { return _damaged; }
    void setDamaged(bool d) { _damaged = d; }

    bool isNew() const { return _isNew; }
    void setIsNew(bool n) { _isNew = n; }

    std::optional<QDateTime> fileCreated, fileModified;
    qint64 fileSize = 0;

    // Metadata
    const std::optional<PhotoMeta> &meta() const { return _meta; }
    void setMeta(std::optional<PhotoMeta> m);
    std::optional<PhotoMeta> rawMeta;
    double timeOffset() const { return _timeOffset; }      // seconds added to the capture date
    void setTimeOffset(double s) { _timeOffset = s; }
    // Capture date with the camera clock offset applied; absent without metadata.
    std::optional<QDateTime> captureDate() const;

    // Analysis
    std::optional<double> sharpness() const { return _sharpness; }
    void setSharpness(std::optional<double> s) { _sharpness = s; }
    std::optional<double> faceSharpness() const { return _faceSharpness; }
    void setFaceSharpness(std::optional<double> s) { _faceSharpness = s; }
    bool eyesClosed() const { return _eyesClosed; }
    void setEyesClosed(bool e) { _eyesClosed = e; }
    const std::optional<QList<double>> &eyeOpen() const { return _eyeOpen; }
    void setEyeOpen(std::optional<QList<double>> e) { _eyeOpen = std::move(e); }
    std::optional<QPointF> focusPoint() const { return _focusPoint; }
    void setFocusPoint(std::optional<QPointF> p) { _focusPoint = p; }

    // Bursts
    std::optional<QUuid> burstID() const { return _burstID; }
    void setBurstID(std::optional<QUuid> b) { _burstID = b; }
    int burstIndex() const { return _burstIndex; }
    void setBurstIndex(int i) { _burstIndex = i; }
    int burstCount() const { return _burstCount; }
    void setBurstCount(int n) { _burstCount = n; }
    bool isBurstBest() const { return _isBurstBest; }
    void setIsBurstBest(bool b) { _isBurstBest = b; }

    std::optional<double> tasteScore() const { return _tasteScore; }
    void setTasteScore(std::optional<double> s) { _tasteScore = s; }

    FacetValues facets;

    // Lower-cased, accent-free text of names and metadata used by the word filter.
    const QString &searchText() const;

private:
    QString _url, _previewURL, _sidecarURL;
    QStringList _files;
    QString _name;
    ColorClass _colorClass = ColorClass::none;
    int _rating = 0;
    bool _tagged = false;
    int _rotation = 0;
    std::optional<CropSpec> _crop;
    bool _isNew = false;
    bool _damaged = false;
    std::optional<PhotoMeta> _meta;
    double _timeOffset = 0;
    std::optional<double> _sharpness, _faceSharpness;
    bool _eyesClosed = false;
    std::optional<QList<double>> _eyeOpen;
    std::optional<QPointF> _focusPoint;
    std::optional<QUuid> _burstID;
    int _burstIndex = 0, _burstCount = 0;
    bool _isBurstBest = false;
    std::optional<double> _tasteScore;
};

using PhotoPtr = std::shared_ptr<Photo>;

// Folds text for searching: lower case, accents removed ("Niño" → "nino").
QString foldForSearch(const QString &text);

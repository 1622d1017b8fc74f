#pragma once
// The browser's long-lived services, built once and wired together: the marks store and book, the
// sidecar store, the browser state, background sharpness scoring of the open folder, the image pipeline tuned to each
// folder's disk, and files arriving from the camera hub grouped into the open folder. The window
// and the headless tests build one and only connect to it. GUI thread only.
#include "imaging/diskkind.h"

#include <QObject>
#include <QString>
#include <memory>

class AppState;
class CameraHub;
class ImagePipeline;
class MarksBook;
class MarksStore;
class SharpnessAnalyzer;
class SharpnessCache;
class XMPStore;
class UploadCenter;

class BrowserSession : public QObject
{
    Q_OBJECT
public:
    // `sharpnessWidth` workers for scoring (0: half the cores); `cache` defaults to the shared one.
    explicit BrowserSession(QObject *parent = nullptr, int sharpnessWidth = 0, SharpnessCache *cache = nullptr);
    ~BrowserSession() override;

    AppState &state() { return *_state; }
    MarksStore &store() { return *_store; }
    MarksBook &book() { return *_book; }
    XMPStore &sidecars() { return *_xmp; }
    SharpnessAnalyzer &analyzer() { return *_analyzer; }

    // Tunes `pipeline` to the disk of every folder opened from now on (and of the open one).
    // Once: a second call is ignored.
    void usePipeline(ImagePipeline &pipeline);
    ImagePipeline *pipeline() const { return _pipeline; }

    // Live reception, made on first use. It lives as long as the session, so closing the camera
    // window never stops a camera that is sending; whatever it receives joins the open folder.
    CameraHub &cameraHub();
    bool hasCameraHub() const { return _cameraHub != nullptr; }

    // The upload queue, made on first use (or with the camera hub, which forwards through it).
    UploadCenter &uploads();

signals:
    // The pipeline was tuned to this folder's disk.
    void pipelineConfigured(const QString &folder, DiskKind kind);

private:
    void measureSharpness(bool newFolder);
    void configurePipeline();

    // Declared in the order they depend on each other: the state writes through the book, the
    // book through the store.
    std::unique_ptr<MarksStore> _store;
    std::unique_ptr<XMPStore> _xmp;
    std::unique_ptr<MarksBook> _book;
    std::unique_ptr<AppState> _state;
    SharpnessAnalyzer *_analyzer;
    ImagePipeline *_pipeline = nullptr;
    CameraHub *_cameraHub = nullptr;
    UploadCenter *_uploads = nullptr;
};

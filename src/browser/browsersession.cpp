#include "browsersession.h"

#include "appstate.h"
#include "uploadcenter.h"

#include "analysis/sharpnessanalyzer.h"
#include "camera/camerahub.h"
#include "imaging/imagepipeline.h"
#include "marks/marksbook.h"
#include "marks/marksstore.h"
#include "metadata/xmpstore.h"

#include <QtConcurrent>

BrowserSession::BrowserSession(QObject *parent, int sharpnessWidth, SharpnessCache *cache)
    : QObject(parent)
    , _store(std::make_unique<MarksStore>())
    , _xmp(std::make_unique<XMPStore>())
    , _book(std::make_unique<MarksBook>(_store.get()))
    , _state(std::make_unique<AppState>(*_book))
    , _analyzer(new SharpnessAnalyzer(this, sharpnessWidth, cache))
{
    _state->useSidecars(*_xmp);
    // Every shot of the open folder is scored in the background; a new folder drops the old work.
    connect(_analyzer, &SharpnessAnalyzer::measured, _state.get(), &AppState::applySharpness);
    // The scoring decodes every shot of the folder: what it cannot read is damaged.
    connect(_analyzer, &SharpnessAnalyzer::unreadable, _state.get(), &AppState::markDamaged);
    connect(_state.get(), &AppState::folderChanged, _analyzer, &SharpnessAnalyzer::cancel);
    connect(_state.get(), &AppState::loaded, this, [this] {
        measureSharpness(true);
        configurePipeline();
    });
    // Shots that arrived (camera, folder watcher) are scored too.
    connect(_state.get(), &AppState::photosChanged, this, [this] { measureSharpness(false); });
}

BrowserSession::~BrowserSession()
{
    // The hub and the analyzer hand results to the state: they go first.
    delete _cameraHub;
    _cameraHub = nullptr;
    _analyzer->cancel();
    _analyzer->waitForDone();
    delete _analyzer;
    _analyzer = nullptr;
    _state.reset();
}

void BrowserSession::usePipeline(ImagePipeline &pipeline)
{
    if (_pipeline)
        return;
    _pipeline = &pipeline;
    if (!_state->folder().isEmpty() && !_state->isLoading())
        configurePipeline();
}

void BrowserSession::configurePipeline()
{
    const QString folder = _state->folder();
    if (!_pipeline || folder.isEmpty())
        return;
    // Telling the disk apart reads the mount table and may stat a network share: off this thread.
    QtConcurrent::run([folder] { return diskKindFor(folder); }).then(this, [this, folder](DiskKind kind) {
        if (folder != _state->folder())
            return;
        _pipeline->configure(folder, kind);
        emit pipelineConfigured(folder, kind);
    });
}

void BrowserSession::measureSharpness(bool newFolder)
{
    QList<SharpnessAnalyzer::Job> jobs;
    jobs.reserve(_state->photos().size());
    for (const auto &p : _state->photos())
        if (!p->sharpness() && !p->previewURL().isEmpty())
            jobs.append({p->id, p->previewURL(), p->previewIsRaw});
    if (newFolder)
        _analyzer->start(jobs);
    else
        _analyzer->add(jobs);
}

CameraHub &BrowserSession::cameraHub()
{
    if (!_cameraHub) {
        _cameraHub = new CameraHub(_state->folder(), this);
        // Grouped into the open folder when it is the destination: a late RAW joins its JPEG.
        connect(_cameraHub, &CameraHub::fileReceived, _state.get(),
                [this](const QString &path) { _state->addFiles({path}, true); });
        uploads().forwardFrom(*_cameraHub);
    }
    return *_cameraHub;
}

UploadCenter &BrowserSession::uploads()
{
    if (!_uploads)
        _uploads = new UploadCenter({}, this);
    return *_uploads;
}

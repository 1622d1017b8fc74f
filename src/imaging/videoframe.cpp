// One frame of a video at 1.0 s, upright as the track's display matrix asks: FFmpeg demuxes,
// decodes and scales; everything FFmpeg allocates is released by the guards below.
#include "imagedecoder.h"
#include "imageorientation.h"

#include <QFile>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <mutex>

namespace ImageDecoder {
namespace {

// Bounds the work on a file whose timestamps never reach the target.
constexpr int kMaxPackets = 5000;

struct CloseInput {
    void operator()(AVFormatContext *c) const { avformat_close_input(&c); }
};
struct FreeCodec {
    void operator()(AVCodecContext *c) const { avcodec_free_context(&c); }
};
struct FreeFrame {
    void operator()(AVFrame *f) const { av_frame_free(&f); }
};
struct FreePacket {
    void operator()(AVPacket *p) const { av_packet_free(&p); }
};
struct FreeScaler {
    void operator()(SwsContext *s) const { sws_freeContext(s); }
};

// The frame decoded at or after `target` (stream time base), else the last one decodable.
std::unique_ptr<AVFrame, FreeFrame> frameAt(AVFormatContext *format, AVCodecContext *codec, int stream, int64_t target)
{
    std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FreeFrame> frame(av_frame_alloc());
    std::unique_ptr<AVFrame, FreeFrame> kept(av_frame_alloc());
    if (!packet || !frame || !kept)
        return nullptr;
    bool have = false;

    // Drains what the decoder has ready; true once the target is reached.
    const auto drain = [&] {
        while (avcodec_receive_frame(codec, frame.get()) >= 0) {
            av_frame_unref(kept.get());
            av_frame_move_ref(kept.get(), frame.get());
            have = true;
            const int64_t pts = kept->best_effort_timestamp;
            if (pts != AV_NOPTS_VALUE && pts >= target)
                return true;
        }
        return false;
    };

    bool reached = false;
    for (int packets = 0; !reached && packets < kMaxPackets;) {
        if (av_read_frame(format, packet.get()) < 0)
            break;
        if (packet->stream_index == stream) {
            ++packets;
            // A damaged packet is skipped; the decoder resynchronises on the next one.
            avcodec_send_packet(codec, packet.get());
            reached = drain();
        }
        av_packet_unref(packet.get());
    }
    if (!reached) {   // the clip ends before the target: flush and keep its last frame
        avcodec_send_packet(codec, nullptr);
        drain();
    }
    return have ? std::move(kept) : nullptr;
}

} // namespace

QImage videoFrame(const QString &path, int size)
{
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_QUIET); });   // failures are silent here

    /* Open the container and the best video track. */
    AVFormatContext *opened = nullptr;
    if (avformat_open_input(&opened, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return {};
    const std::unique_ptr<AVFormatContext, CloseInput> format(opened);
    if (avformat_find_stream_info(format.get(), nullptr) < 0)
        return {};
    const AVCodec *decoder = nullptr;
    const int index = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (index < 0 || !decoder)
        return {};
    AVStream *stream = format->streams[index];
    const AVCodecParameters *par = stream->codecpar;
    if (par->width <= 0 || par->height <= 0 || qint64(par->width) * par->height > kMaxPixels)
        return {};

    /* One decoder thread: the pipeline's pool is the parallelism. */
    const std::unique_ptr<AVCodecContext, FreeCodec> codec(avcodec_alloc_context3(decoder));
    if (!codec || avcodec_parameters_to_context(codec.get(), par) < 0)
        return {};
    codec->thread_count = 1;
    if (avcodec_open2(codec.get(), decoder, nullptr) < 0)
        return {};

    /* 1.0 s after the track starts: seek to the key frame before it, decode forward. */
    const int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    const int64_t target = start + av_rescale_q(AV_TIME_BASE, AV_TIME_BASE_Q, stream->time_base);
    if (av_seek_frame(format.get(), index, target, AVSEEK_FLAG_BACKWARD) < 0)
        av_seek_frame(format.get(), index, start, AVSEEK_FLAG_BACKWARD);
    auto frame = frameAt(format.get(), codec.get(), index, target);
    if (!frame) {
        // Seeking by time in a transport stream can land past the clip's only key frame:
        // decode from the first byte instead.
        avcodec_flush_buffers(codec.get());
        if (avformat_seek_file(format.get(), -1, 0, 0, 0, AVSEEK_FLAG_BYTE) >= 0)
            frame = frameAt(format.get(), codec.get(), index, target);
    }
    if (!frame || frame->width <= 0 || frame->height <= 0 || qint64(frame->width) * frame->height > kMaxPixels)
        return {};

    /* Scale to the long side asked for, square pixels, never up. */
    const AVRational sar = av_guess_sample_aspect_ratio(format.get(), stream, frame.get());
    const double shownWidth = sar.num > 0 && sar.den > 0 ? frame->width * av_q2d(sar) : frame->width;
    const double longSide = qMax(shownWidth, double(frame->height));
    const double scale = size > 0 && longSide > size ? size / longSide : 1.0;
    const int w = qMax(1, qRound(shownWidth * scale));
    const int h = qMax(1, qRound(frame->height * scale));
    const std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(frame->width, frame->height, AVPixelFormat(frame->format), w, h, AV_PIX_FMT_RGB32,
                       SWS_AREA | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler)
        return {};
    // swscale assumes BT.601 unless told; HD video is BT.709.
    const int space = frame->colorspace != AVCOL_SPC_UNSPECIFIED ? frame->colorspace
                      : frame->height >= 720                   ? AVCOL_SPC_BT709
                                                               : AVCOL_SPC_SMPTE170M;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(space), frame->color_range == AVCOL_RANGE_JPEG,
                             sws_getCoefficients(AVCOL_SPC_BT709), 1, 0, 1 << 16, 1 << 16);
    QImage image(w, h, QImage::Format_RGB32);   // AV_PIX_FMT_RGB32 is the same native-endian 0xAARRGGBB
    if (image.isNull())
        return {};
    uint8_t *const planes[4] = {image.bits(), nullptr, nullptr, nullptr};
    const int strides[4] = {int(image.bytesPerLine()), 0, 0, 0};
    if (sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, planes, strides) != h)
        return {};

    /* Turn as the track says. */
    size_t matrixSize = 0;
    const uint8_t *matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &matrixSize);
    if (!matrix || matrixSize < 9 * sizeof(int32_t)) {
        const AVFrameSideData *side = av_frame_get_side_data(frame.get(), AV_FRAME_DATA_DISPLAYMATRIX);
        matrix = side && side->size >= 9 * sizeof(int32_t) ? side->data : nullptr;
    }
    if (!matrix)
        return image;
    int32_t m[9];
    memcpy(m, matrix, sizeof m);
    return ImageOrientation::apply(image, ImageOrientation::fromDisplayMatrix(m));
}

} // namespace ImageDecoder

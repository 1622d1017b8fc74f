#pragma once
// File kinds decided by the lower-cased extension alone. Every part of Corvane that picks files by
// kind (scan, ingest, receiver, file operations) asks here.
#include <QString>

namespace FileKinds {

enum class Kind { Jpeg, Raw, OtherImage, Video, Sidecar, Other };

// The lower-cased extension of a file name or path ("" when there is none).
QString extensionOf(const QString &pathOrName);
// Base name without the extension (the last dot splits; a leading dot is part of the name).
QString baseNameOf(const QString &pathOrName);

Kind kindOfExtension(const QString &lowerExt);
inline Kind kindOf(const QString &path) { return kindOfExtension(extensionOf(path)); }

bool isRaw(const QString &path);
bool isJpeg(const QString &path);
bool isImage(const QString &path);   // JPEG, RAW or other image
bool isVideo(const QString &path);
bool isMedia(const QString &path);   // image or video
bool isSidecar(const QString &path); // .xmp

// The same tests on an extension that is already lower-cased (hot loops).
bool isRawExt(const QString &lowerExt);
bool isJpegExt(const QString &lowerExt);
bool isImageExt(const QString &lowerExt);
bool isVideoExt(const QString &lowerExt);
bool isMediaExt(const QString &lowerExt);

} // namespace FileKinds

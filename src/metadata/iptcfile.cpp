#include "iptcfile.h"

#include "jpegsegments.h"
#include "photometareader.h"
#include "xmpdocument.h"

#include "model/filekinds.h"
#include "util/atomicbatch.h"
#include "util/atomicfile.h"
#include "util/fileio.h"
#include "util/uniquefd.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <QUuid>

#include <exiv2/exiv2.hpp>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace IptcFile {
namespace {

void (*g_beforeRename)(const QString &) = nullptr;

// ---------------------------------------------------------------------------------------------
// Where each field lives

enum class XmpForm { text, seq, bag, alt, contact };

struct FieldPlace {
    IptcField field;
    const char *iim;          // exiv2 key of the IIM dataset, or null
    const char *xmpKey;       // exiv2 key of the XMP property (contact: of the struct's field)
    XmpForm form;
    const char *ns, *prefix, *name;   // the XMP property as written into a sidecar
};

constexpr char kDc[] = "http://purl.org/dc/elements/1.1/";
constexpr char kPhotoshop[] = "http://ns.adobe.com/photoshop/1.0/";
constexpr char kRights[] = "http://ns.adobe.com/xap/1.0/rights/";
constexpr char kCore[] = "http://iptc.org/std/Iptc4xmpCore/1.0/xmlns/";
constexpr char kExt[] = "http://iptc.org/std/Iptc4xmpExt/2008-02-29/";
constexpr char kContactKey[] = "Xmp.iptc.CreatorContactInfo";

const FieldPlace kPlaces[] = {
    {IptcField::creator, "Iptc.Application2.Byline", "Xmp.dc.creator", XmpForm::seq, kDc, "dc", "creator"},
    {IptcField::creatorJobtitle, "Iptc.Application2.BylineTitle", "Xmp.photoshop.AuthorsPosition", XmpForm::text, kPhotoshop, "photoshop", "AuthorsPosition"},
    {IptcField::creditLine, "Iptc.Application2.Credit", "Xmp.photoshop.Credit", XmpForm::text, kPhotoshop, "photoshop", "Credit"},
    {IptcField::source, "Iptc.Application2.Source", "Xmp.photoshop.Source", XmpForm::text, kPhotoshop, "photoshop", "Source"},
    {IptcField::copyrightNotice, "Iptc.Application2.Copyright", "Xmp.dc.rights", XmpForm::alt, kDc, "dc", "rights"},
    {IptcField::usageTerms, nullptr, "Xmp.xmpRights.UsageTerms", XmpForm::alt, kRights, "xmpRights", "UsageTerms"},
    {IptcField::headline, "Iptc.Application2.Headline", "Xmp.photoshop.Headline", XmpForm::text, kPhotoshop, "photoshop", "Headline"},
    {IptcField::description, "Iptc.Application2.Caption", "Xmp.dc.description", XmpForm::alt, kDc, "dc", "description"},
    {IptcField::event, nullptr, "Xmp.iptcExt.Event", XmpForm::alt, kExt, "Iptc4xmpExt", "Event"},
    {IptcField::city, "Iptc.Application2.City", "Xmp.photoshop.City", XmpForm::text, kPhotoshop, "photoshop", "City"},
    {IptcField::provinceState, "Iptc.Application2.ProvinceState", "Xmp.photoshop.State", XmpForm::text, kPhotoshop, "photoshop", "State"},
    {IptcField::country, "Iptc.Application2.CountryName", "Xmp.photoshop.Country", XmpForm::text, kPhotoshop, "photoshop", "Country"},
    {IptcField::countryCode, "Iptc.Application2.CountryCode", "Xmp.iptc.CountryCode", XmpForm::text, kCore, "Iptc4xmpCore", "CountryCode"},
    {IptcField::instructions, "Iptc.Application2.SpecialInstructions", "Xmp.photoshop.Instructions", XmpForm::text, kPhotoshop, "photoshop", "Instructions"},
    {IptcField::contactEmail, nullptr, "Xmp.iptc.CreatorContactInfo/Iptc4xmpCore:CiEmailWork", XmpForm::contact, kCore, "Iptc4xmpCore", "CiEmailWork"},
    {IptcField::contactPhone, nullptr, "Xmp.iptc.CreatorContactInfo/Iptc4xmpCore:CiTelWork", XmpForm::contact, kCore, "Iptc4xmpCore", "CiTelWork"},
    {IptcField::contactUrl, nullptr, "Xmp.iptc.CreatorContactInfo/Iptc4xmpCore:CiUrlWork", XmpForm::contact, kCore, "Iptc4xmpCore", "CiUrlWork"},
};
static_assert(std::size(kPlaces) == size_t(kIptcFieldCount));

constexpr char kIimKeywords[] = "Iptc.Application2.Keywords";
constexpr char kXmpKeywords[] = "Xmp.dc.subject";
constexpr quint16 kIptcDigest = 0x0425;
constexpr char kUtf8Escape[] = "\x1b%G";   // ISO 2022 escape of UTF-8 (IIM 1:90)

// ---------------------------------------------------------------------------------------------
// Reading exiv2's data

QString decodeIim(const std::string &bytes, bool utf8Declared)
{
    const QByteArrayView raw(bytes.data(), qsizetype(bytes.size()));
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString s = utf8(raw);
    // Old writers put Latin-1 without saying so.
    if (utf8.hasError() && !utf8Declared)
        s = QString::fromLatin1(raw);
    s.remove(QChar(0));
    return s.trimmed();
}

bool utf8Declared(const Exiv2::IptcData &iptc)
{
    const auto it = iptc.findKey(Exiv2::IptcKey("Iptc.Envelope.CharacterSet"));
    return it != iptc.end() && it->toString() == kUtf8Escape;
}

QStringList xmpItems(const Exiv2::XmpData &xmp, const char *key)
{
    QStringList out;
    try {
        const auto it = xmp.findKey(Exiv2::XmpKey(key));
        if (it == xmp.end())
            return out;
        const Exiv2::Value &v = it->value();
        if (const auto *alt = dynamic_cast<const Exiv2::LangAltValue *>(&v)) {
            if (!alt->value_.empty()) {
                const auto d = alt->value_.find("x-default");
                out.append(QString::fromStdString(d != alt->value_.end() ? d->second : alt->value_.begin()->second));
            }
        } else if (const auto *arr = dynamic_cast<const Exiv2::XmpArrayValue *>(&v)) {
            for (long i = 0; i < arr->count(); ++i)
                out.append(QString::fromStdString(arr->toString(i)));
        } else if (const auto *text = dynamic_cast<const Exiv2::XmpTextValue *>(&v)) {
            out.append(QString::fromStdString(text->value_));
        } else {
            out.append(QString::fromStdString(v.toString()));
        }
    } catch (const std::exception &) {
    }
    for (QString &s : out)
        s = s.trimmed();
    out.removeIf([](const QString &s) { return s.isEmpty(); });
    return out;
}

IptcValues fromIim(const Exiv2::IptcData &iptc)
{
    IptcValues v;
    const bool utf8 = utf8Declared(iptc);
    for (const FieldPlace &p : kPlaces) {
        if (!p.iim)
            continue;
        const auto it = iptc.findKey(Exiv2::IptcKey(p.iim));
        if (it != iptc.end())
            v[p.field] = decodeIim(it->toString(), utf8);
    }
    for (const auto &d : iptc)
        if (d.key() == kIimKeywords) {
            const QString k = decodeIim(d.toString(), utf8);
            if (!k.isEmpty())
                v.keywords.append(k);
        }
    return v;
}

IptcValues fromXmp(const Exiv2::XmpData &xmp)
{
    IptcValues v;
    for (const FieldPlace &p : kPlaces) {
        const QStringList items = xmpItems(xmp, p.xmpKey);
        if (!items.isEmpty())
            v[p.field] = items.first();
    }
    v.keywords = xmpItems(xmp, kXmpKeywords);
    return v;
}

// Each field from the first source that has it.
IptcValues merged(const IptcValues &over, const IptcValues &under)
{
    IptcValues v = over;
    for (IptcField f : IptcFields::all())
        if (v[f].isEmpty())
            v[f] = under[f];
    if (v.keywords.isEmpty())
        v.keywords = under.keywords;
    return v;
}

// The fields a template writes.
bool touches(const IptcTemplate &t, IptcField f) { return !t.values[f].isEmpty(); }

// Whether a source already holds the result in every field the template writes.
bool holds(const IptcTemplate &t, const IptcValues &source, const IptcValues &result, bool iimOnly)
{
    for (const FieldPlace &p : kPlaces)
        if (touches(t, p.field) && (!iimOnly || p.iim) && source[p.field] != result[p.field])
            return false;
    return t.values.keywords.isEmpty() || source.keywords == result.keywords;
}

// ---------------------------------------------------------------------------------------------
// Writing exiv2's data

void eraseXmp(Exiv2::XmpData &xmp, const std::string &keyOrPrefix, bool prefix)
{
    for (auto it = xmp.begin(); it != xmp.end();) {
        const std::string k = it->key();
        if (k == keyOrPrefix || (prefix && k.rfind(keyOrPrefix, 0) == 0))
            it = xmp.erase(it);
        else
            ++it;
    }
}

void setXmp(Exiv2::XmpData &xmp, const FieldPlace &p, const QString &value)
{
    const std::string text = value.toStdString();
    eraseXmp(xmp, p.xmpKey, false);
    switch (p.form) {
    case XmpForm::text:
    case XmpForm::contact: {
        Exiv2::XmpTextValue v;
        v.value_ = text;
        xmp.add(Exiv2::XmpKey(p.xmpKey), &v);
        break;
    }
    case XmpForm::seq:
    case XmpForm::bag: {
        Exiv2::XmpArrayValue v(p.form == XmpForm::seq ? Exiv2::xmpSeq : Exiv2::xmpBag);
        v.read(text);
        xmp.add(Exiv2::XmpKey(p.xmpKey), &v);
        break;
    }
    case XmpForm::alt: {
        Exiv2::LangAltValue v;
        v.value_["x-default"] = text;
        xmp.add(Exiv2::XmpKey(p.xmpKey), &v);
        break;
    }
    }
}

void setIim(Exiv2::IptcData &iptc, const char *key, const QStringList &values)
{
    for (auto it = iptc.begin(); it != iptc.end();) {
        if (it->key() == key)
            it = iptc.erase(it);
        else
            ++it;
    }
    for (const QString &v : values) {
        Exiv2::StringValue s(v.toStdString());
        iptc.add(Exiv2::IptcKey(key), &s);
    }
}

// Declares UTF-8, first turning the file's own undeclared Latin-1 texts into UTF-8.
void declareUtf8(Exiv2::IptcData &iptc)
{
    if (!utf8Declared(iptc)) {
        for (auto &d : iptc) {
            if (d.record() != Exiv2::IptcDataSets::application2 || d.typeId() != Exiv2::string)
                continue;
            const std::string raw = d.toString();
            const QString text = decodeIim(raw, false);
            const std::string utf8 = text.toStdString();
            if (utf8 != raw)
                d.setValue(utf8);
        }
        Exiv2::StringValue esc(kUtf8Escape);
        iptc["Iptc.Envelope.CharacterSet"].setValue(&esc);
    }
    if (iptc.findKey(Exiv2::IptcKey("Iptc.Envelope.ModelVersion")) == iptc.end())
        iptc["Iptc.Envelope.ModelVersion"].setValue("4");
    if (iptc.findKey(Exiv2::IptcKey("Iptc.Application2.RecordVersion")) == iptc.end())
        iptc["Iptc.Application2.RecordVersion"].setValue("4");
}

void write(const IptcTemplate &t, const IptcValues &result, Exiv2::IptcData &iptc, Exiv2::XmpData &xmp)
{
    bool contact = false;
    for (const FieldPlace &p : kPlaces) {
        if (!touches(t, p.field))
            continue;
        if (p.form == XmpForm::contact) {
            contact = true;
            continue;
        }
        setXmp(xmp, p, result[p.field]);
        if (p.iim)
            setIim(iptc, p.iim, {result[p.field]});
    }
    if (contact) {
        eraseXmp(xmp, kContactKey, true);
        Exiv2::XmpTextValue s;
        s.setXmpStruct();
        xmp.add(Exiv2::XmpKey(kContactKey), &s);
        for (const FieldPlace &p : kPlaces)
            if (p.form == XmpForm::contact && !result[p.field].isEmpty())
                setXmp(xmp, p, result[p.field]);
    }
    if (!t.values.keywords.isEmpty()) {
        eraseXmp(xmp, kXmpKeywords, false);
        Exiv2::XmpArrayValue bag(Exiv2::xmpBag);
        for (const QString &k : result.keywords)
            bag.read(k.toStdString());
        if (bag.count() > 0)
            xmp.add(Exiv2::XmpKey(kXmpKeywords), &bag);
        setIim(iptc, kIimKeywords, result.keywords);
    }
    declareUtf8(iptc);
}

// ---------------------------------------------------------------------------------------------
// Files

QString fileName(const QString &path) { return QFileInfo(path).fileName(); }

Result failure(const QString &path, const QString &file, const QString &why)
{
    return {Result::failed, file, QStringLiteral("%1: %2; no se ha modificado").arg(fileName(path), why), std::nullopt};
}

std::optional<QByteArray> readWhole(const QString &path, qint64 limit, int *error)
{
    UniqueFd fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0) {
        *error = errno;
        return std::nullopt;
    }
    if (st.st_size > limit) {
        *error = EFBIG;
        return std::nullopt;
    }
    QByteArray bytes(qsizetype(st.st_size), Qt::Uninitialized);
    const qint64 n = FileIo::readFully(fd.get(), bytes.data(), bytes.size());
    if (n != bytes.size()) {
        *error = n < 0 ? errno : EIO;
        return std::nullopt;
    }
    return bytes;
}

QString describe(int e)
{
    if (e == EFBIG)
        return QStringLiteral("el archivo es demasiado grande");
    return AtomicFile::describeErrno(e);
}

// The JPEG's metadata segments of one kind, exactly as they stand.
QByteArray rawSegments(const QByteArray &bytes, const JpegSegments::Layout &l, bool xmp)
{
    QByteArray out;
    for (const auto &s : l.segments)
        if (xmp ? JpegSegments::isXmp(bytes, s) : JpegSegments::isPhotoshop(bytes, s)) {
            out.append(bytes.constData() + s.begin, s.end - s.begin);   // a copy: `bytes` may be a mapping
            if (xmp)
                break;   // a second standard XMP segment is not read by anyone; it goes
        }
    return out;
}

QByteArray segment(unsigned char marker, const QByteArray &data)
{
    QByteArray s;
    s.reserve(data.size() + 4);
    s += char(0xFF);
    s += char(marker);
    s += char((data.size() + 2) >> 8);
    s += char((data.size() + 2) & 0xFF);
    return s + data;
}

// The start of the new file, up to its image data: the original's segments with the XMP and
// Photoshop ones replaced by `xmp` and `photoshop` (complete segments, either may be empty).
QByteArray rebuildHead(const QByteArray &bytes, const JpegSegments::Layout &l, const QByteArray &xmp, const QByteArray &photoshop)
{
    QByteArray out;
    out.reserve(l.scan + xmp.size() + photoshop.size());
    out.append("\xFF\xD8", 2);
    bool xmpDone = false, psDone = false;
    // New segments go where the old ones stood, else after the leading JFIF and EXIF segments.
    size_t insertAt = 0;
    while (insertAt < l.segments.size() && (l.segments[insertAt].marker == 0xE0 || l.segments[insertAt].marker == 0xE1)
           && !JpegSegments::isXmp(bytes, l.segments[insertAt]))
        ++insertAt;
    for (size_t i = 0; i <= l.segments.size(); ++i) {
        if (i == insertAt) {
            bool hasXmp = false, hasPs = false;
            for (const auto &s : l.segments) {
                hasXmp = hasXmp || JpegSegments::isXmp(bytes, s);
                hasPs = hasPs || JpegSegments::isPhotoshop(bytes, s);
            }
            if (!hasXmp) {
                out += xmp;
                xmpDone = true;
            }
            if (!hasPs) {
                out += photoshop;
                psDone = true;
            }
        }
        if (i == l.segments.size())
            break;
        const auto &s = l.segments[i];
        if (JpegSegments::isXmp(bytes, s)) {
            if (!xmpDone)
                out += xmp;
            xmpDone = true;
        } else if (JpegSegments::isPhotoshop(bytes, s)) {
            if (!psDone)
                out += photoshop;
            psDone = true;
        } else {
            out.append(bytes.constData() + s.begin, s.end - s.begin);
        }
    }
    return out;
}

// Whether `head`, followed by the original's image data, is the original with at most its XMP and
// Photoshop segments changed: the same other segments in the same order, byte for byte.
bool sameSegments(const QByteArray &before, const JpegSegments::Layout &lb, const QByteArray &head)
{
    const auto la = JpegSegments::parse(head + QByteArray("\xFF\xDA\x00\x02", 4));
    if (!la || la->scan != head.size())
        return false;
    auto others = [](const QByteArray &b, const JpegSegments::Layout &l) {
        std::vector<QByteArrayView> v;
        for (const auto &s : l.segments)
            if (!JpegSegments::isXmp(b, s) && !JpegSegments::isPhotoshop(b, s))
                v.emplace_back(b.constData() + s.data - 2, s.end - s.data + 2);   // length and data
        return v;
    };
    const auto sb = others(before, lb), sa = others(head, *la);
    if (sb.size() != sa.size())
        return false;
    for (size_t i = 0; i < sb.size(); ++i)
        if (sb[i] != sa[i])
            return false;
    return true;
}

// Reads `size` bytes at `offset` (fewer only at the end of the file); -1 on an error.
qint64 preadFully(int fd, char *buffer, qint64 size, qint64 offset)
{
    qint64 done = 0;
    while (done < size) {
        const ssize_t n = ::pread(fd, buffer + done, size_t(size - done), off_t(offset + done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        done += n;
    }
    return done;
}

// Whether the file behind `fd` holds exactly `head` followed by the original's bytes from
// `tailOffset` on (`tailSize` of them). Both sides are read in chunks into buffers that stay
// mapped: comparing against the original's fresh mapping would touch every page of it, which
// costs more than reading it again from the page cache.
bool holdsExactly(int fd, const QByteArray &head, int originalFd, qsizetype tailOffset, qsizetype tailSize)
{
    constexpr qint64 kChunk = qint64(1) << 20;
    thread_local std::vector<char> written = std::vector<char>(size_t(kChunk));
    thread_local std::vector<char> expected = std::vector<char>(size_t(kChunk));
    if (::lseek(fd, 0, SEEK_SET) != 0)
        return false;
    for (qsizetype at = 0; at < head.size();) {
        const qint64 want = std::min<qint64>(kChunk, head.size() - at);
        if (FileIo::readFully(fd, written.data(), want) != want || std::memcmp(written.data(), head.constData() + at, size_t(want)) != 0)
            return false;
        at += want;
    }
    for (qsizetype at = 0; at < tailSize;) {
        const qint64 want = std::min<qint64>(kChunk, tailSize - at);
        if (FileIo::readFully(fd, written.data(), want) != want
            || preadFully(originalFd, expected.data(), want, tailOffset + at) != want
            || std::memcmp(written.data(), expected.data(), size_t(want)) != 0)
            return false;
        at += want;
    }
    // Nothing after the end.
    return FileIo::readFully(fd, written.data(), 1) == 0;
}

// The image data from the original into the new file: inside the kernel where the file system
// can (no copy through memory, or a shared extent), else written from the mapping.
bool copyTail(int from, int to, qsizetype offset, const char *tail, qsizetype size)
{
    loff_t in = loff_t(offset);
    qsizetype done = 0;
    while (done < size) {
        const ssize_t n = ::copy_file_range(from, &in, to, nullptr, size_t(size - done), 0);
        if (n <= 0) {
            if (n < 0 && errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP)
                return false;
            break;
        }
        done += qsizetype(n);
    }
    return done == size || FileIo::writeFully(to, tail + done, size - done);
}

// Writes `head` and the original's image data over the JPEG at `path` (whose state before is `st`
// and content `original`): a hidden temporary beside it, read back and checked, with the
// original's mode and times, synced (or handed to the batch) and renamed. Empty, or the reason.
QString replaceJpeg(const QString &path, const struct stat &st, int originalFd, const QByteArray &original,
                    const JpegSegments::Layout &layout, const QByteArray &head, AtomicBatch *batch)
{
    if (!sameSegments(original, layout, head))
        return QStringLiteral("no se pudo componer el archivo nuevo");
    const QString folder = QFileInfo(path).absolutePath();
    const QByteArray temp = QFile::encodeName(folder + QStringLiteral("/.corvane-")
                                              + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".part"));
    UniqueFd fd(::open(temp.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd)
        return describe(errno);
    auto drop = [&](int e) {
        fd.reset();
        ::unlink(temp.constData());
        return describe(e);
    };
    const char *tail = original.constData() + layout.scan;
    const qsizetype tailSize = original.size() - layout.scan;
    if (!FileIo::writeFully(fd.get(), head.constData(), head.size()) || !copyTail(originalFd, fd.get(), layout.scan, tail, tailSize))
        return drop(errno);
    // What reached the file system must be the new segments and the image data untouched.
    errno = 0;
    if (!holdsExactly(fd.get(), head, originalFd, layout.scan, tailSize))
        return drop(errno ? errno : EIO);
    const int owned = ::fchown(fd.get(), st.st_uid, st.st_gid);   // kept where allowed
    Q_UNUSED(owned);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    if (::fchmod(fd.get(), st.st_mode & 07777) != 0 || ::futimens(fd.get(), times) != 0)
        return drop(errno);
    if (!batch && ::fsync(fd.get()) != 0)
        return drop(errno);
    // In a batch the disk starts writing now, while the next files are built; the batch's one
    // flush then finds little left to wait for.
    if (batch)
        ::sync_file_range(fd.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    fd.reset();
    // Another program may have written the file meanwhile: its version wins.
    struct stat now {};
    const QByteArray native = QFile::encodeName(path);
    if (::stat(native.constData(), &now) != 0 || now.st_ino != st.st_ino || now.st_size != st.st_size
        || now.st_mtim.tv_sec != st.st_mtim.tv_sec || now.st_mtim.tv_nsec != st.st_mtim.tv_nsec) {
        ::unlink(temp.constData());
        return QStringLiteral("otro programa lo ha cambiado mientras tanto");
    }
    if (g_beforeRename)
        g_beforeRename(QFile::decodeName(temp));
    if (batch) {
        batch->adopt(path, temp);
        return {};
    }
    if (::rename(temp.constData(), native.constData()) != 0) {
        const int e = errno;
        ::unlink(temp.constData());
        return describe(e);
    }
    FileIo::syncFolder(folder);
    return {};
}

// The file mapped read-only: the page cache's own pages, no copy of a 30 MB JPEG in memory.
struct Mapping {
    void *data = MAP_FAILED;
    size_t size = 0;
    Mapping() = default;
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;
    ~Mapping()
    {
        if (data != MAP_FAILED)
            ::munmap(data, size);
    }
};

struct OpenJpeg {
    QString path;
    struct stat st {};
    UniqueFd fd;
    Mapping map;
    QByteArray bytes;   // over `map`
    JpegSegments::Layout layout;
    QString error;
};

// The JPEG behind `path` (links followed), read whole and taken apart.
void openJpeg(OpenJpeg &j, const QString &given, bool forWriting)
{
    const QFileInfo info(given);
    j.path = info.isSymLink() ? info.canonicalFilePath() : info.absoluteFilePath();
    const QByteArray native = QFile::encodeName(j.path);
    if (::stat(native.constData(), &j.st) != 0) {
        j.error = errno == ENOENT ? QStringLiteral("el archivo no existe") : describe(errno);
        return;
    }
    if (!S_ISREG(j.st.st_mode)) {
        j.error = QStringLiteral("no es un archivo");
        return;
    }
    // A file locked against writing stays locked, even for a user the system would let through.
    if (forWriting && (::access(native.constData(), W_OK) != 0 || (j.st.st_mode & 0222) == 0)) {
        j.error = errno == EROFS ? QStringLiteral("el disco es de solo lectura") : QStringLiteral("el archivo es de solo lectura");
        return;
    }
    j.fd.reset(::open(native.constData(), O_RDONLY | O_CLOEXEC));
    UniqueFd &fd = j.fd;
    if (!fd) {
        j.error = describe(errno);
        return;
    }
    if (j.st.st_size < 4) {
        j.error = QStringLiteral("no es un JPEG");
        return;
    }
    j.map.size = size_t(j.st.st_size);
    j.map.data = ::mmap(nullptr, j.map.size, PROT_READ, MAP_PRIVATE, fd.get(), 0);
    if (j.map.data == MAP_FAILED) {
        j.error = describe(errno);
        return;
    }
    ::madvise(j.map.data, j.map.size, MADV_SEQUENTIAL);
    j.bytes = QByteArray::fromRawData(static_cast<const char *>(j.map.data), qsizetype(j.map.size));
    QString why;
    const auto layout = JpegSegments::parse(j.bytes, &why);
    if (!layout)
        j.error = why;
    else
        j.layout = *layout;
    return;
}

// The JPEG's IIM and XMP, decoded; false with a reason when either is damaged.
bool decodeJpeg(const OpenJpeg &j, Exiv2::IptcData &iptc, Exiv2::XmpData &xmp, QByteArray &photoshop, QString *why)
{
    const qsizetype psHeader = qsizetype(sizeof(JpegSegments::kPhotoshopSignature));
    const qsizetype xmpHeader = qsizetype(sizeof(JpegSegments::kXmpSignature));
    std::string packet;
    for (const auto &s : j.layout.segments) {
        if (JpegSegments::isPhotoshop(j.bytes, s))
            photoshop.append(j.bytes.constData() + s.data + psHeader, s.dataSize() - psHeader);
        else if (JpegSegments::isXmp(j.bytes, s) && packet.empty())
            packet.assign(j.bytes.constData() + s.data + xmpHeader, size_t(s.dataSize() - xmpHeader));
    }
    try {
        if (!photoshop.isEmpty()) {
            const Exiv2::byte *record = nullptr;
            uint32_t sizeHdr = 0, sizeData = 0;
            const auto *ps = reinterpret_cast<const Exiv2::byte *>(photoshop.constData());
            if (Exiv2::Photoshop::locateIptcIrb(ps, long(photoshop.size()), &record, &sizeHdr, &sizeData) == 0
                && Exiv2::IptcParser::decode(iptc, record + sizeHdr, sizeData) != 0) {
                *why = QStringLiteral("su IPTC está dañado");
                return false;
            }
        }
        if (!packet.empty()) {
            while (!packet.empty() && packet.back() == '\0')
                packet.pop_back();
            if (Exiv2::XmpParser::decode(xmp, packet) != 0) {
                *why = QStringLiteral("su XMP está dañado");
                return false;
            }
        }
    } catch (const std::exception &) {
        *why = QStringLiteral("sus metadatos están dañados");
        return false;
    }
    return true;
}

Result applyJpeg(const IptcTemplate &t, const QString &given, AtomicBatch *batch)
{
    OpenJpeg j;
    openJpeg(j, given, true);
    if (!j.error.isEmpty())
        return failure(given, j.path, j.error);
    Exiv2::IptcData iptc;
    Exiv2::XmpData xmp;
    QByteArray photoshop;
    QString why;
    if (!decodeJpeg(j, iptc, xmp, photoshop, &why))
        return failure(given, j.path, why);

    const IptcValues iim = fromIim(iptc), inXmp = fromXmp(xmp);
    const IptcValues result = t.appliedTo(merged(inXmp, iim));
    const QString problem = IptcLimits::problem(result);
    if (!problem.isEmpty())
        return failure(given, j.path, problem);
    if (holds(t, inXmp, result, false) && holds(t, iim, result, true) && utf8Declared(iptc))
        return {Result::unchanged, j.path, {}, std::nullopt};

    QByteArray newXmp, newPs;
    try {
        write(t, result, iptc, xmp);
        std::string packet;
        if (Exiv2::XmpParser::encode(packet, xmp, Exiv2::XmpParser::useCompactFormat) != 0)
            return failure(given, j.path, QStringLiteral("no se pudo componer el XMP"));
        const QByteArray data = QByteArray(JpegSegments::kXmpSignature, sizeof(JpegSegments::kXmpSignature))
                                + QByteArray::fromStdString(packet);
        if (data.size() > JpegSegments::kMaxSegmentData)
            return failure(given, j.path, QStringLiteral("los metadatos no caben en el JPEG (XMP de %1 KB; como mucho 64 KB)")
                                              .arg(data.size() / 1024));
        newXmp = segment(0xE1, data);
        const Exiv2::DataBuf psBuf = Exiv2::Photoshop::setIptcIrb(reinterpret_cast<const Exiv2::byte *>(photoshop.constData()),
                                                                  long(photoshop.size()), iptc);
        QByteArray ps(reinterpret_cast<const char *>(psBuf.pData_), qsizetype(psBuf.size_));
        // Photoshop and Lightroom trust the IIM over the XMP when its digest is stale.
        if (const auto digest = JpegSegments::photoshopResource(ps, kIptcDigest); digest && digest->second == 16) {
            const Exiv2::DataBuf iim = Exiv2::IptcParser::encode(iptc);
            const QByteArray md5 = QCryptographicHash::hash(
                QByteArrayView(reinterpret_cast<const char *>(iim.pData_), qsizetype(iim.size_)), QCryptographicHash::Md5);
            ps.replace(digest->first, 16, md5);
        }
        // A Photoshop block larger than one segment continues in the next ones.
        const QByteArray header(JpegSegments::kPhotoshopSignature, sizeof(JpegSegments::kPhotoshopSignature));
        const qsizetype chunk = JpegSegments::kMaxSegmentData - header.size();
        for (qsizetype at = 0; at < ps.size(); at += chunk)
            newPs += segment(0xED, header + ps.mid(at, chunk));
    } catch (const std::exception &) {
        return failure(given, j.path, QStringLiteral("no se pudieron componer los metadatos"));
    }

    Undo u;
    u.file = j.path;
    u.jpeg = true;
    u.before = rawSegments(j.bytes, j.layout, true);
    u.beforePhotoshop = rawSegments(j.bytes, j.layout, false);
    const QString error = replaceJpeg(j.path, j.st, j.fd.get(), j.bytes, j.layout, rebuildHead(j.bytes, j.layout, newXmp, newPs), batch);
    if (!error.isEmpty())
        return failure(given, j.path, error);
    return {Result::written, j.path, {}, u};
}

// ---------------------------------------------------------------------------------------------
// Sidecars

QString writeSidecarBytes(const QString &sidecar, bool existed, const QByteArray &bytes, AtomicBatch *batch)
{
    const QFileInfo info(sidecar);
    // The rename would replace a sidecar its owner made read-only; refuse as the folder would.
    if (existed && !info.isWritable())
        return QStringLiteral("el .xmp es de solo lectura");
    struct stat st {};
    const mode_t mode = existed && ::stat(QFile::encodeName(sidecar).constData(), &st) == 0 ? (st.st_mode & 07777) : 0644;
    if (batch) {
        const AtomicFile::Result r = batch->add(sidecar, bytes, mode);
        return r.ok() ? QString() : r.error;
    }
    const AtomicFile::Result r = AtomicFile::write(sidecar, bytes);
    if (!r.ok())
        return r.error;
    if (existed)
        ::chmod(QFile::encodeName(sidecar).constData(), mode);
    return {};
}

std::optional<IptcValues> sidecarValues(const QByteArray &bytes)
{
    Exiv2::XmpData xmp;
    try {
        std::string packet = bytes.toStdString();
        if (Exiv2::XmpParser::decode(xmp, packet) != 0)
            return std::nullopt;
    } catch (const std::exception &) {
        return std::nullopt;
    }
    return fromXmp(xmp);
}

Result applySidecar(const IptcTemplate &t, const QString &path, AtomicBatch *batch)
{
    const QString sidecar = sidecarFor(path);
    const bool existed = QFileInfo::exists(sidecar);
    QByteArray before;
    std::optional<XmpDocument> doc;
    IptcValues existing;
    if (existed) {
        int e = 0;
        const auto bytes = readWhole(sidecar, XmpDocument::kMaxBytes, &e);
        std::optional<IptcValues> values;
        if (bytes) {
            doc = XmpDocument::parse(*bytes);
            values = sidecarValues(*bytes);
        }
        if (!doc || !values)
            return failure(sidecar, sidecar, QStringLiteral("no se pudo leer el .xmp"));
        before = *bytes;
        existing = *values;
    } else {
        doc = XmpDocument::blank();
    }
    const IptcValues result = t.appliedTo(existing);
    const QString problem = IptcLimits::problem(result);
    if (!problem.isEmpty())
        return failure(sidecar, sidecar, problem);
    if (existed && holds(t, existing, result, false))
        return {Result::unchanged, sidecar, {}, std::nullopt};

    // Only what changes is edited, so the rest of another tool's sidecar keeps its place.
    bool contact = false;
    for (const FieldPlace &p : kPlaces) {
        if (!touches(t, p.field) || (existed && existing[p.field] == result[p.field]))
            continue;
        const QString &v = result[p.field];
        switch (p.form) {
        case XmpForm::text: doc->set(p.ns, p.prefix, p.name, v); break;
        case XmpForm::seq: doc->setArray(p.ns, p.prefix, p.name, XmpDocument::Container::seq, {v}); break;
        case XmpForm::bag: doc->setArray(p.ns, p.prefix, p.name, XmpDocument::Container::bag, {v}); break;
        case XmpForm::alt: doc->setArray(p.ns, p.prefix, p.name, XmpDocument::Container::alt, {v}); break;
        case XmpForm::contact: contact = true; break;
        }
    }
    if (contact)
        doc->setStruct(kCore, "Iptc4xmpCore", "CreatorContactInfo",
                       {{"CiEmailWork", result[IptcField::contactEmail]},
                        {"CiTelWork", result[IptcField::contactPhone]},
                        {"CiUrlWork", result[IptcField::contactUrl]}});
    if (!t.values.keywords.isEmpty() && (!existed || existing.keywords != result.keywords))
        doc->setArray(kDc, "dc", "subject", XmpDocument::Container::bag, result.keywords);

    const QString error = writeSidecarBytes(sidecar, existed, doc->bytes(), batch);
    if (!error.isEmpty())
        return failure(sidecar, sidecar, error);
    Undo u;
    u.file = sidecar;
    u.existed = existed;
    u.before = before;
    return {Result::written, sidecar, {}, u};
}

} // namespace

bool writesInside(const QString &path) { return FileKinds::isJpeg(path); }

QString sidecarFor(const QString &path)
{
    const QFileInfo info(path);
    const QString base = info.absolutePath() + QLatin1Char('/') + FileKinds::baseNameOf(info.fileName());
    const QString lower = base + QStringLiteral(".xmp");
    if (!QFileInfo::exists(lower) && QFileInfo::exists(base + QStringLiteral(".XMP")))
        return base + QStringLiteral(".XMP");
    return lower;
}

Result apply(const IptcTemplate &t, const QString &path, AtomicBatch *batch)
{
    ensureExiv2();
    if (t.isEmpty())
        return {Result::unchanged, path, {}, std::nullopt};
    if (writesInside(path))
        return applyJpeg(t, path, batch);
    if (!QFileInfo(path).isFile())
        return failure(path, path, QStringLiteral("el archivo no existe"));
    return applySidecar(t, path, batch);
}

QString undo(const Undo &u)
{
    ensureExiv2();
    if (!u.jpeg) {
        if (!u.existed) {
            if (::unlink(QFile::encodeName(u.file).constData()) != 0 && errno != ENOENT)
                return QStringLiteral("%1: %2").arg(fileName(u.file), describe(errno));
            return {};
        }
        const QString error = writeSidecarBytes(u.file, true, u.before, nullptr);
        return error.isEmpty() ? QString() : QStringLiteral("%1: %2").arg(fileName(u.file), error);
    }
    OpenJpeg j;
    openJpeg(j, u.file, true);
    QString error = j.error;
    if (error.isEmpty())
        error = replaceJpeg(j.path, j.st, j.fd.get(), j.bytes, j.layout, rebuildHead(j.bytes, j.layout, u.before, u.beforePhotoshop), nullptr);
    return error.isEmpty() ? QString() : QStringLiteral("%1: %2").arg(fileName(u.file), error);
}

std::optional<IptcValues> read(const QString &path)
{
    ensureExiv2();
    if (writesInside(path)) {
        OpenJpeg j;
        openJpeg(j, path, false);
        if (!j.error.isEmpty())
            return std::nullopt;
        Exiv2::IptcData iptc;
        Exiv2::XmpData xmp;
        QByteArray photoshop;
        QString why;
        if (!decodeJpeg(j, iptc, xmp, photoshop, &why))
            return std::nullopt;
        return merged(fromXmp(xmp), fromIim(iptc));
    }
    std::optional<IptcValues> embedded;
    try {
        auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString(), false);
        if (image.get()) {
            image->readMetadata();
            embedded = merged(fromXmp(image->xmpData()), fromIim(image->iptcData()));
        }
    } catch (const std::exception &) {
    }
    int e = 0;
    const auto bytes = readWhole(sidecarFor(path), XmpDocument::kMaxBytes, &e);
    const std::optional<IptcValues> side = bytes ? sidecarValues(*bytes) : std::nullopt;
    if (side && embedded)
        return merged(*side, *embedded);
    return side ? side : embedded;
}

void setBeforeRenameForTesting(void (*hook)(const QString &)) { g_beforeRename = hook; }

} // namespace IptcFile

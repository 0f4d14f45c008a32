// The full-size export against files and places made to hurt it: each class of attack, built from
// a small sound picture, ends in the export or in one line saying why, within the time and memory
// of a small picture, and writes nothing but the target.
#include "cli_run.h"
#include "common/hostile_files.h"

#include <QColorSpace>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTransform>
#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <unistd.h>

using namespace clarovi::testing;

namespace {

struct Hostile {
    const char* name;
    /// Writes the files into the folder; the arguments after "--full-size --length 1".
    std::function<QStringList(const QDir&)> make;
    int exitCode;
    std::vector<const char*> lines; ///< what each line of stderr says, in order
    std::function<void(const QDir&)> check = {};
    CliLimits limits = {};
};

const char* const kAsItIs = "smaller than a pixel";

std::unique_ptr<Exiv2::Image> metadataOf(const QString& path) {
    auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString());
    image->readMetadata();
    return image;
}

bool hasTag(const Exiv2::ExifData& exif, const char* key) {
    return exif.findKey(Exiv2::ExifKey(key)) != exif.end();
}

/// A profile's header alone: enough for what the export checks and copies.
QByteArray iccProfile(const char* model) {
    QByteArray profile(132, '\0');
    qToBigEndian(quint32(profile.size()), profile.data());
    profile.replace(12, 4, "mntr").replace(16, 4, model).replace(20, 4, "XYZ ");
    return profile.replace(36, 4, "acsp");
}

QStringList photo(const QDir& dir, const QByteArray& bytes, const char* name,
                  const char* target = "out.png") {
    writeFile(dir.filePath(name), bytes);
    return {dir.filePath(name), dir.filePath(target)};
}

QByteArray png(bool grey = false) {
    return encoded(smallPicture(grey), "png");
}

/// count entries of tag, all pointing at one block of bytes.
std::vector<TiffTag> sharing(quint16 tag, quint16 type, int count, int bytes) {
    return std::vector<TiffTag>(size_t(count), TiffTag{tag, type, quint32(bytes), {}, true});
}

std::function<void(const QDir&)> writtenAsItWas(const char* target, QTransform turn = {}) {
    return [target, turn](const QDir& dir) {
        const QImage written(dir.filePath(target));
        const QImage expected = smallPicture(written.isGrayscale()).transformed(turn);
        EXPECT_EQ(written.convertToFormat(QImage::Format_RGB32),
                  expected.convertToFormat(QImage::Format_RGB32));
    };
}

std::function<void(const QDir&)> nothingWritten(const QString& kept = {}) {
    return [kept](const QDir& dir) {
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("out.png")));
        EXPECT_TRUE(dir.entryList(QStringList{"*.part"}, QDir::Hidden | QDir::Files).isEmpty());
        if (!kept.isEmpty()) {
            EXPECT_EQ(readFile(dir.filePath(kept)), png()) << "the photograph is as it was";
        }
    };
}

const Hostile kCases[] = {
    {"TiffTagsOnOneBlock",
     [](const QDir& d) {
         return photo(d, greyTiff(sharing(0x8000, 7, 2000, 1 << 20), QByteArray(1 << 20, 'U')),
                      "tags.tif");
     },
     0,
     {kAsItIs},
     writtenAsItWas("out.png")},
    {"XmpOfManyProperties",
     [](const QDir& d) {
         return photo(d, withPngChunks(png(), pngXmp(xmpPacket(20000))), "x.png");
     },
     0,
     {"without its XMP data: it holds 2000", kAsItIs},
     [](const QDir& d) { EXPECT_TRUE(metadataOf(d.filePath("out.png"))->xmpData().empty()); }},
    {"TiffXmpOfManyProperties",
     [](const QDir& d) {
         const QByteArray packet = xmpPacket(20000);
         return photo(d, greyTiff({{700, 1, quint32(packet.size()), packet}}), "x.tif", "out.tif");
     },
     0,
     {"without its XMP data", kAsItIs},
     [](const QDir& d) { EXPECT_TRUE(metadataOf(d.filePath("out.tif"))->xmpData().empty()); }},
    {"PngExifEntriesSharingOneValue",
     [](const QDir& d) {
         const QByteArray exif =
             tiffFile(sharing(0x010e, 2, 1000, 1 << 20), QByteArray(1 << 20, 'a'));
         return photo(d, withPngChunks(png(), pngChunk("eXIf", exif)), "e.png");
     },
     0,
     {"without its EXIF data", kAsItIs},
     [](const QDir& d) { EXPECT_LT(QFileInfo(d.filePath("out.png")).size(), 1 << 16); }},
    {"TiffExifEntriesSharingOneValue",
     [](const QDir& d) {
         return photo(d, greyTiff(sharing(0x013b, 2, 1000, 1 << 20), QByteArray(1 << 20, 'a')),
                      "e.tif", "out.tif");
     },
     0,
     {"without its EXIF data", kAsItIs},
     [](const QDir& d) { EXPECT_LT(QFileInfo(d.filePath("out.tif")).size(), 1 << 16); }},
    {"PngWithTwoMegabytesOfExif",
     [](const QDir& d) {
         const QByteArray make(2 << 20, 'M');
         const QByteArray exif = tiffFile({{0x010f, 2, quint32(make.size()), make}});
         return photo(d, withPngChunks(png(), pngChunk("eXIf", exif)), "big.png");
     },
     0,
     {kAsItIs},
     writtenAsItWas("out.png")},
    {"SparsePngOfFourGibibytes",
     [](const QDir& d) {
         QFile file(d.filePath("huge.png"));
         EXPECT_TRUE(file.open(QIODevice::WriteOnly));
         file.write(png().left(33) + be32(0x7fff0000) + "IDAT");
         EXPECT_TRUE(file.resize(qint64(4) << 30)); // holes, which read as zeros
         return QStringList{file.fileName(), d.filePath("out.png")};
     },
     1,
     {"more picture data"},
     nothingWritten()},
    {"PngTurnedByItsExif",
     [](const QDir& d) {
         const QByteArray exif = tiffFile({{274, 3, 1, le(6, 2)}});
         return photo(d, withPngChunks(png(), pngChunk("eXIf", exif)), "turned.png");
     },
     0,
     {kAsItIs},
     [](const QDir& d) {
         writtenAsItWas("out.png", QTransform().rotate(90))(d);
         EXPECT_EQ(
             metadataOf(d.filePath("out.png"))->exifData()["Exif.Image.Orientation"].toString(),
             "1");
     }},
    {"TiffWithDngVersionAndEntriesOfTheWrongType",
     [](const QDir& d) {
         return photo(d,
                      greyTiff({{0xc612, 1, 4, QByteArray("\1\4\0\0", 4)},
                                {0x010f, 3, 1, le(7, 2)},
                                {0x0110, 2, 6, QByteArray("Model\0", 6)}}),
                      "dng.tif", "out.tif");
     },
     0,
     {kAsItIs},
     [](const QDir& d) {
         Exiv2::ExifData exif = metadataOf(d.filePath("out.tif"))->exifData();
         EXPECT_FALSE(hasTag(exif, "Exif.Image.DNGVersion"));
         EXPECT_FALSE(hasTag(exif, "Exif.Image.Make")) << "a SHORT where text belongs";
         EXPECT_EQ(exif["Exif.Image.Model"].toString(), "Model");
     }},
    {"GreyPngWithAnRgbProfile",
     [](const QDir& d) {
         const QByteArray profile = QColorSpace(QColorSpace::SRgb).iccProfile();
         const QByteArray iccp = QByteArray("sRGB\0\0", 6) + qCompress(profile).mid(4);
         return photo(d, withPngChunks(png(true), pngChunk("iCCP", iccp)), "grey.png");
     },
     0,
     {kAsItIs, "without its colour profile: it describes RGB colours"},
     [](const QDir& d) { EXPECT_FALSE(metadataOf(d.filePath("out.png"))->iccProfileDefined()); }},
    {"GreyJpegWithAGreyProfile",
     [](const QDir& d) {
         const QByteArray profile = iccProfile("GRAY");
         const QByteArray app2 = QByteArray("ICC_PROFILE\0\1\1", 14) + profile;
         const QByteArray jpeg = encoded(smallPicture(true), "jpeg");
         const QByteArray length = be32(quint32(app2.size() + 2)).right(2);
         return photo(d, jpeg.left(2) + "\xff\xe2" + length + app2 + jpeg.mid(2), "grey.jpg",
                      "out.jpg");
     },
     0,
     {kAsItIs},
     [](const QDir& d) {
         const auto out = metadataOf(d.filePath("out.jpg"));
         ASSERT_TRUE(out->iccProfileDefined());
         EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(out->iccProfile()->pData_),
                              out->iccProfile()->size_),
                   iccProfile("GRAY"));
     }},
    {"NotEnoughMemory",
     [](const QDir& d) {
         QFile file(d.filePath("large.tif"));
         EXPECT_TRUE(file.open(QIODevice::WriteOnly));
         file.write(greyTiff({{256, 3, 1, le(6400, 2)},
                              {257, 3, 1, le(6250, 2)},
                              {278, 3, 1, le(6250, 2)},
                              {279, 4, 1, le(6400 * 6250, 4)}},
                             {}, {}));
         EXPECT_TRUE(file.resize(file.size() + 6400 * 6250));
         return QStringList{"--length", "20", file.fileName(), d.filePath("out.png")};
     },
     1,
     {"large.tif\u201d: there is not enough memory for it."},
     nothingWritten(),
     {300 << 20, 0}},
    {"OutputEndingInASlash",
     [](const QDir& d) { return photo(d, png(), "p.png", "out/"); },
     1,
     {"the name is a folder's"}},
    {"OutputOfOnlyAnExtension",
     [](const QDir& d) { return photo(d, png(), "p.png", ".jpg"); },
     1,
     {"nothing before its extension"}},
    {"FileSizeLimit",
     [](const QDir& d) { return photo(d, png(), "p.png"); },
     1,
     {"file too large."},
     nothingWritten(),
     {0, 64}},
    {"OutputIsTheInput",
     [](const QDir& d) { return photo(d, png(), "p.png", "p.png"); },
     1,
     {"the photograph being restored"},
     nothingWritten("p.png")},
    {"OutputIsTheInputSpelledOtherwise",
     [](const QDir& d) {
         d.mkpath("sub");
         return photo(d, png(), "p.png", "sub/../p.png");
     },
     1,
     {"the photograph being restored"},
     nothingWritten("p.png")},
    {"OutputIsAHardLinkToTheInput",
     [](const QDir& d) {
         const QStringList arguments = photo(d, png(), "p.png", "hard.png");
         EXPECT_EQ(::link(QFile::encodeName(arguments[0]), QFile::encodeName(arguments[1])), 0);
         return arguments;
     },
     1,
     {"the photograph being restored"},
     nothingWritten("p.png")},
    {"OutputIsALinkToAnotherFile",
     [](const QDir& d) {
         writeFile(d.filePath("victim.png"), png());
         QFile::link(d.filePath("victim.png"), d.filePath("out.png"));
         return photo(d, png(true), "p.png");
     },
     1,
     {"symbolic link"},
     [](const QDir& d) {
         EXPECT_EQ(readFile(d.filePath("victim.png")), png());
         EXPECT_TRUE(QFileInfo(d.filePath("out.png")).isSymLink());
     }},
    {"OutputIsADevice",
     [](const QDir& d) {
         return QStringList{photo(d, png(), "p.png")[0], "/dev/null"};
     },
     1,
     {"not a plain file"}},
    {"BatchWhoseTargetsClash",
     [](const QDir& d) {
         d.mkpath("a"), d.mkpath("b");
         writeFile(d.filePath("a/photo.png"), png());
         writeFile(d.filePath("b/photo.jpg"), encoded(smallPicture(), "jpeg"));
         writeFile(d.filePath("c.png"), png());
         return QStringList{"--out-dir", d.filePath("out"), d.filePath("a/photo.png"),
                            d.filePath("b/photo.jpg"), d.filePath("c.png")};
     },
     1,
     {"[1/3]", "same file", "[2/3]", "same file", "[3/3]", kAsItIs, "2 of 3 photographs failed"},
     [](const QDir& d) {
         EXPECT_EQ(QDir(d.filePath("out")).entryList(QDir::Files), QStringList{"c-restored.png"});
     }},
    {"BatchWhoseTargetIsAnotherInput",
     [](const QDir& d) {
         writeFile(d.filePath("x.png"), png());
         writeFile(d.filePath("x-restored.png"), png(true));
         return QStringList{"--out-dir", d.path(), d.filePath("x.png"),
                            d.filePath("x-restored.png")};
     },
     1,
     {"[1/2]", "another photograph of this batch", "[2/2]", kAsItIs, "1 of 2 photographs failed"},
     [](const QDir& d) { EXPECT_EQ(readFile(d.filePath("x-restored.png")), png(true)); }},
};

class HostileExport : public ::testing::TestWithParam<Hostile> {};

} // namespace

TEST_P(HostileExport, EndsInTheExportOrOneLineAFailureAndWritesNothingElse) {
    const Hostile& c = GetParam();
    if (c.limits.memory && kAddressSanitizer)
        GTEST_SKIP() << "AddressSanitizer reserves more address space than the limit";
    const QTemporaryDir temp;
    const QDir dir(temp.path());
    const CliRun run = runCli(QStringList{"--full-size", "--length", "1"} + c.make(dir), c.limits);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.errors.toStdString();
    const QList<QByteArray> lines =
        run.errors.isEmpty() ? QList<QByteArray>() : run.errors.trimmed().split('\n');
    ASSERT_EQ(size_t(lines.size()), c.lines.size()) << run.errors.toStdString();
    for (size_t k = 0; k < c.lines.size(); ++k)
        EXPECT_TRUE((c.lines[k][0] == '[' || lines[int(k)].startsWith("clarovi-cli: ")) &&
                    lines[int(k)].contains(c.lines[k]))
            << lines[int(k)].toStdString();
    if (c.check)
        c.check(dir);
}

INSTANTIATE_TEST_SUITE_P(Classes, HostileExport, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Hostile>& row) {
                             return std::string(row.param.name);
                         });

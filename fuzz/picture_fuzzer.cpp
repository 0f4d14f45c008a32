// Feeds bytes through the program's way of opening a picture, as the window and the command line
// open a file: the header checks, the decoding budget and the turn by the picture's orientation.
// What decodes must be a picture of the size its header claimed or be refused with a reason.
#include "files/picture_file.h"

#include <QBuffer>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace clarovi;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    const files::LoadedPicture loaded = files::loadPicture(buffer, QStringLiteral("input"));
    // A refusal always says why; a picture is never both refused and given.
    if (loaded.image.isNull() == loaded.error.isEmpty())
        std::abort();
    return 0;
}

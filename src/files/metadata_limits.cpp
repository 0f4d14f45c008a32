#include "metadata_limits.h"

#include "file_structure.h"

#include <algorithm>

namespace clarovi::files {

namespace {

/// The first index at or after from where text continues with end, or the packet's size.
qsizetype after(const QByteArray& packet, qsizetype from, const char* end) {
    const qsizetype found = packet.indexOf(end, from);
    return found < 0 ? packet.size() : found + qsizetype(qstrlen(end));
}

/// Counts a start tag at i (just after its '<'): one property, one more per attribute. Returns
/// where the tag ends, and whether it closes itself.
qsizetype startTag(const QByteArray& packet, qsizetype i, qint64& properties, bool& closed) {
    ++properties;
    char quote = 0;
    for (; i < packet.size(); ++i) {
        const char c = packet[i];
        if (quote) {
            quote = c == quote ? 0 : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '=') {
            ++properties;
        } else if (c == '>') {
            closed = i > 0 && packet[i - 1] == '/';
            return i + 1;
        }
    }
    closed = true;
    return i;
}

} // namespace

QString xmpProblem(const QByteArray& packet) {
    if (packet.size() > kMostXmpBytes)
        return QStringLiteral("it holds %1 bytes, more than the %2 MiB the export copies")
            .arg(packet.size())
            .arg(kMostXmpBytes >> 20);
    if (packet.contains("<!DOCTYPE") || packet.contains("<!ENTITY"))
        return QStringLiteral("it declares XML entities, which no XMP writer does");
    qint64 properties = 0;
    int depth = 0, deepest = 0;
    for (qsizetype i = packet.indexOf('<'); i >= 0 && i < packet.size();
         i = packet.indexOf('<', i)) {
        ++i;
        if (packet.mid(i, 3) == "!--")
            i = after(packet, i, "-->");
        else if (packet.mid(i, 8) == "![CDATA[")
            i = after(packet, i, "]]>");
        else if (i < packet.size() && (packet[i] == '?' || packet[i] == '!'))
            i = after(packet, i, ">");
        else if (i < packet.size() && packet[i] == '/') {
            depth = std::max(0, depth - 1);
            i = after(packet, i, ">");
        } else {
            bool closed = false;
            i = startTag(packet, i, properties, closed);
            depth += closed ? 0 : 1;
            deepest = std::max(deepest, depth);
        }
    }
    if (properties > kMostXmpProperties)
        return QStringLiteral("it holds %1 properties, more than the %2 the export copies")
            .arg(properties)
            .arg(kMostXmpProperties);
    if (deepest > kMostXmpDepth)
        return QStringLiteral("it nests %1 levels deep, more than the %2 the export copies")
            .arg(deepest)
            .arg(kMostXmpDepth);
    return {};
}

QString iptcProblem(const QByteArray& records) {
    if (records.size() > kMostIptcBytes)
        return QStringLiteral("it holds %1 bytes, more than the %2 MiB the export copies")
            .arg(records.size())
            .arg(kMostIptcBytes >> 20);
    // Each record: its tag marker, record and dataset numbers, and a length of two bytes, or of
    // more when the first has its top bit set. Bytes between records are passed over, as exiv2
    // does.
    qint64 count = 0;
    for (qsizetype at = 0; at + 5 <= records.size();) {
        if (records[at] != 0x1c) {
            ++at;
            continue;
        }
        ++count;
        const quint16 length = be16(records, at + 3);
        const qint64 extended = length & 0x8000 ? length & 0x7fff : 0;
        qint64 data = length;
        if (extended > 0) {
            data = 0;
            for (qint64 k = 0; k < extended && at + 5 + k < records.size(); ++k)
                data = (data << 8 | quint8(records[at + 5 + k])) & 0x7fffffff;
        }
        at += 5 + extended + data;
    }
    if (count > kMostIptcRecords)
        return QStringLiteral("it holds %1 records, more than the %2 the export copies")
            .arg(count)
            .arg(kMostIptcRecords);
    return {};
}

QString iccProblem(const QByteArray& profile) {
    if (profile.size() > kMostIccBytes)
        return QStringLiteral("it holds %1 bytes, more than the %2 a profile may have")
            .arg(profile.size())
            .arg(kMostIccBytes);
    // The header gives the profile's size and the signature "acsp".
    if (profile.size() < 128 || be32(profile, 0) != quint32(profile.size()) ||
        profile.mid(36, 4) != "acsp")
        return QStringLiteral("it is damaged");
    return {};
}

QByteArray iccColourModel(const QByteArray& profile) {
    return profile.mid(16, 4);
}

} // namespace clarovi::files

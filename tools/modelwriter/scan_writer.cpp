#include "modelwriter/scan_writer.h"
#include "modelwriter/envelope_writer.h"

#include <QFile>
#include <QtEndian>

namespace modelwriter {

QByteArray enviHeaderText(const EnviScan& scan)
{
    return QStringLiteral("ENVI\nsamples = %1\nlines = %2\nbands = %3\nheader offset = %4\nfile type = ENVI Standard\n"
                          "data type = %5\ninterleave = %6\nbyte order = 0\n%7")
        .arg(scan.samples)
        .arg(scan.lines)
        .arg(scan.bands)
        .arg(scan.binaryHeader.size())
        .arg(scan.dataType)
        .arg(scan.interleave, scan.extraFields)
        .toLatin1();
}

bool writeEnviScan(const QString& base, const QString& dataExtension, const EnviScan& scan)
{
    return writeFile(base + QStringLiteral(".hdr"), enviHeaderText(scan)) &&
           writeFile(base + dataExtension, scan.binaryHeader + scan.data);
}

QByteArray uint16Bytes(const QVector<quint16>& values)
{
    QByteArray out(values.size() * 2, '\0');
    for (int i = 0; i < values.size(); ++i)
        qToLittleEndian<quint16>(values[i], out.data() + 2 * i);
    return out;
}

QByteArray floatBytes(const QVector<float>& values)
{
    QByteArray out(values.size() * 4, '\0');
    for (int i = 0; i < values.size(); ++i)
        qToLittleEndian<float>(values[i], out.data() + 4 * i);
    return out;
}

QByteArray referenceHeader(const QVector<float>& white, const QVector<float>& dark)
{
    // The white offset counts bytes, the dark one floats.
    QByteArray out("TRFv1");
    out += "WR0:DR" + QByteArray::number(white.size()) + ":|::";
    out += floatBytes(white);
    out += floatBytes(dark);
    return out;
}

} // namespace modelwriter

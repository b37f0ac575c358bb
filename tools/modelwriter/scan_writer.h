#pragma once
// Writes scans as cameras leave them on disk: an ENVI text header beside a raw file of
// little-endian samples, optionally behind a binary header with reference spectra.

#include "modelwriter/envelope_writer.h"

#include <QByteArray>
#include <QString>
#include <QVector>

namespace modelwriter {

struct EnviScan {
    int samples = 0;
    int lines = 0;
    int bands = 0;
    int dataType = 12;                  // ENVI code: 1 uint8, 4 float, 12 uint16
    QString interleave = QStringLiteral("bil");
    QByteArray data;                    // the samples, in the file's order
    QByteArray binaryHeader;            // bytes in front of the samples ("header offset")
    QString extraFields;                // further header lines, written as they are
};

QByteArray enviHeaderText(const EnviScan& scan);

// Writes base + ".hdr" and base + dataExtension. False when a file cannot be written.
bool writeEnviScan(const QString& base, const QString& dataExtension, const EnviScan& scan);

QByteArray uint16Bytes(const QVector<quint16>& values);
QByteArray floatBytes(const QVector<float>& values);

// The binary header of a raw scan with a white and a dark reference spectrum: a five-byte
// tag, the tokens "WR<bytes>:" and "DR<floats>:", the end token "::" and the data section
// holding the white spectrum, then the dark one.
QByteArray referenceHeader(const QVector<float>& white, const QVector<float>& dark);


} // namespace modelwriter

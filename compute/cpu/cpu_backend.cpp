#include "compute/cpu/cpu_backend.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/cpu_regression.h"
#include "compute/cpu/cpu_resampler.h"
#include "compute/cpu/host_frame.h"

#include <QFile>
#include <QRegularExpression>
#include <thread>

namespace compute {
namespace {

// The processor's model name as the kernel reports it, or a plain word where
// /proc/cpuinfo has none (some ARM kernels).
QString processorName()
{
    QFile f(QStringLiteral("/proc/cpuinfo"));
    if (f.open(QIODevice::ReadOnly)) {
        const QString text = QString::fromLatin1(f.readAll()); // grown as it reads: a fixed buffer would be a megabyte
        const QRegularExpression re(QStringLiteral("^(model name|Hardware|Processor)\\s*:\\s*(.+)$"),
                                    QRegularExpression::MultilineOption);
        const auto m = re.match(text);
        if (m.hasMatch())
            return m.captured(2).simplified();
    }
    return QStringLiteral("host processor");
}

} // namespace

QString CpuBackend::deviceName()
{
    const unsigned cores = std::thread::hardware_concurrency();
    // Read once: every handle lists the devices, and the text does not change.
    static const QString processor = processorName();
    QString name = QLatin1Char(' ') + processor;
    if (cores > 0)
        name += QStringLiteral(", %1 cores").arg(cores);
    return name;
}

std::unique_ptr<ClassifierKernel> CpuBackend::prepareClassifier(const ClassifierModel& model, QString*)
{
    return std::make_unique<cpu::CpuClassifier>(model);
}

std::unique_ptr<RegressionKernel> CpuBackend::prepareRegression(const LinearMap& map, QString*)
{
    if (!map.consistent())
        return nullptr; // the caller names what does not fit
    return std::make_unique<cpu::CpuRegression>(map);
}

std::unique_ptr<ResampleKernel> CpuBackend::prepareResampler(const ResampleMap& map, QString*)
{
    if (!map.consistent())
        return nullptr; // the caller names what does not fit
    return std::make_unique<cpu::CpuResampler>(map);
}

std::unique_ptr<StagedFrame> CpuBackend::prepareFrame(int pixels, int bands, QString* error)
{
    if (pixels <= 0 || bands <= 0) {
        if (error)
            *error = QStringLiteral("frames of %1 pixels and %2 bands").arg(pixels).arg(bands);
        return nullptr;
    }
    return std::make_unique<cpu::HostFrame>(pixels, bands);
}

} // namespace compute

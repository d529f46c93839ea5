// Several machines, one show: three kelmor-show processes, each as one
// machine would run it, read the same LTC and chase the same clip. Their
// positions at the same instants must agree within one frame.
//
// "The same instant" is the same timecode: in a deployment every machine
// hears the same LTC at the same moment, so equal timecode is equal time.
// Here each process reads the file from its own start, so each process's
// position at timecode x is taken from its own reports (its position
// between the two reports around x, which come 100 ms apart, interpolated),
// and the three are compared at every 20 ms of timecode.
#include "test_runner_timecode_support.h"

#include <QJsonDocument>
#include <QProcess>
#include <memory>

using namespace runner_test;
using namespace timecode_test;

namespace {

constexpr int kMachines = 3;

/// The chase error of one process at media time `x`, between its two
/// reports around x; false when there are none close enough.
bool errorAt(const std::vector<ChaseSample>& samples, double x, double& error)
{
    for (size_t i = 1; i < samples.size(); ++i) {
        const ChaseSample& a = samples[i - 1];
        const ChaseSample& b = samples[i];
        if (a.mediaMs <= x && x <= b.mediaMs && b.mediaMs - a.mediaMs <= 300) {
            const double f = b.mediaMs > a.mediaMs ? (x - a.mediaMs) / (b.mediaMs - a.mediaMs) : 0.0;
            error = a.error() + f * (b.error() - a.error());
            return true;
        }
    }
    return false;
}

TEST(TimecodeMachines, ThreeRunnersOnOneLtcAgreeWithinAFrame)
{
    const QString clip = chaseClip();
    ASSERT_FALSE(clip.isEmpty());
    const QString dir = freshWorkDir(QStringLiteral("timecode-machines"));
    const QString ltc = makeLtc(dir, QStringLiteral("ltc.wav"), {"ltc:fps=25,start=01:00:00:00,frames=250"});
    ASSERT_FALSE(ltc.isEmpty());
    const QString show = openScreen(1, 160, 90) + chasedLayer(1, clip) + chaseStep(1, QStringLiteral("01:00:01:00"))
        + QStringLiteral("{\"op\": \"wait\", \"ms\": 10500}\n{\"op\": \"quit\"}\n");

    std::vector<std::unique_ptr<QProcess>> machines;
    for (int m = 0; m < kMachines; ++m) {
        const QString own = dir + QStringLiteral("/machine-%1").arg(m + 1);
        QDir().mkpath(own);
        QFile file(own + QStringLiteral("/show.jsonl"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(show.toUtf8());
        file.close();
        auto p = std::make_unique<QProcess>();
        p->setWorkingDirectory(own);
        p->start(showBinary(), {QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"),
                                QStringLiteral("--out"), own, QStringLiteral("--ltc-input"), ltc,
                                own + QStringLiteral("/show.jsonl")});
        ASSERT_TRUE(p->waitForStarted(10000));
        machines.push_back(std::move(p));
    }
    std::vector<std::vector<ChaseSample>> samples;
    const double atMs = labelMs(QStringLiteral("01:00:01:00"), 40.0);
    for (auto& p : machines) {
        ASSERT_TRUE(p->waitForFinished(60000)) << "a runner did not end";
        EXPECT_EQ(p->exitCode(), 0) << p->readAllStandardError().toStdString();
        QList<QJsonObject> lines;
        QStringList bad;
        for (const QByteArray& raw : p->readAllStandardOutput().split('\n')) {
            const QJsonDocument doc = QJsonDocument::fromJson(raw);
            if (doc.isObject())
                lines << doc.object();
        }
        EXPECT_EQ(changes(timecodeLines(lines)), QStringList({"start", "stop"}));
        samples.push_back(chaseSamples(lines, 1, atMs));
        ASSERT_GE(samples.back().size(), 40u) << describe(samples.back());
    }

    // From half a second after "at" to the end of the LTC.
    std::vector<double> spreads;
    for (double x = 500; x <= 8400; x += 20) {
        double low = 1e9;
        double high = -1e9;
        int have = 0;
        for (const std::vector<ChaseSample>& s : samples) {
            double e = 0;
            if (!errorAt(s, x, e))
                continue;
            ++have;
            low = std::min(low, e);
            high = std::max(high, e);
        }
        if (have == kMachines)
            spreads.push_back(high - low);
    }
    ASSERT_GE(spreads.size(), 300u) << "too few instants where all three reported";
    std::sort(spreads.begin(), spreads.end());
    const double p90 = spreads[spreads.size() * 9 / 10];
    const double median = spreads[spreads.size() / 2];
    EXPECT_LE(median, 40.0) << "median spread " << median;
    EXPECT_LE(p90, 40.0) << "90th percentile of the spread " << p90 << " ms; machine 1: " << describe(samples[0]);
}

} // namespace

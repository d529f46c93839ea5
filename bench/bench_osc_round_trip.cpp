// How long a show step takes from a controller to its reply over OSC,
// against the same step over the runner's TCP live control as the
// reference, measured in the same run, interleaved.
//
// Method. One kelmor-show (--listen 0 --osc-port 0, no screens) and two
// clients in this process: a TCP connection sending JSON lines, and a UDP
// socket sending /kelmor/step with the same JSON text (encoded by liblo)
// and reading /kelmor/reply. Each round sends the step once on each, one
// after the other (which goes first alternates), and times each from the
// send to its reply. The step is {"op": "setFadeTime", "args": [1.0]}: it
// does nothing visible and prints nothing. Per repetition: p50 and p99 of
// each, and the ratio OSC / TCP of the p50s; at the end the median of the
// ratios. The load average is printed before and after.
//
//   QT_QPA_PLATFORM=offscreen build/bench/kelmor_bench_osc_round_trip
//       --runner build/host/kelmor-show [--rounds 500] [--repetitions 5]
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkDatagram>
#include <QProcess>
#include <QTcpSocket>
#include <QUdpSocket>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <lo/lo.h>
#include <vector>

namespace {

const QByteArray kStep = "{\"op\": \"setFadeTime\", \"args\": [1.0]}";

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    const std::size_t index = std::min(values.size() - 1, std::size_t(p * double(values.size() - 1) + 0.5));
    return values[index];
}

QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("?");
    return QString::fromLatin1(file.readAll().split(' ').mid(0, 3).join(' '));
}

QByteArray oscStep()
{
    lo_message m = lo_message_new();
    lo_message_add_string(m, kStep.constData());
    std::size_t size = 0;
    void* data = lo_message_serialise(m, "/kelmor/step", nullptr, &size);
    const QByteArray packet(static_cast<const char*>(data), int(size));
    std::free(data);
    lo_message_free(m);
    return packet;
}

/// The runner's host line `what` (its port), read from its stdout.
int portFrom(QProcess& runner, const char* what)
{
    QDeadlineTimer deadline(30000);
    while (!deadline.hasExpired()) {
        if (!runner.canReadLine() && !runner.waitForReadyRead(1000))
            continue;
        while (runner.canReadLine()) {
            const QJsonObject line = QJsonDocument::fromJson(runner.readLine()).object();
            if (line.value(QStringLiteral("host")).toString() == QLatin1String(what))
                return line.value(QStringLiteral("port")).toInt();
        }
    }
    return 0;
}

struct Clients
{
    QTcpSocket tcp;
    QUdpSocket udp;
    quint16 oscPort = 0;
    QByteArray packet = oscStep();

    /// Round trip over TCP in ms; -1 on timeout.
    double viaTcp()
    {
        QElapsedTimer clock;
        clock.start();
        tcp.write(kStep + '\n');
        tcp.flush();
        while (!tcp.canReadLine()) {
            if (!tcp.waitForReadyRead(5000))
                return -1;
        }
        tcp.readLine();
        return double(clock.nsecsElapsed()) / 1e6;
    }

    /// Round trip over OSC in ms; -1 on timeout.
    double viaOsc()
    {
        QElapsedTimer clock;
        clock.start();
        udp.writeDatagram(packet, QHostAddress(QHostAddress::LocalHost), oscPort);
        while (!udp.hasPendingDatagrams()) {
            if (!udp.waitForReadyRead(5000))
                return -1;
        }
        udp.receiveDatagram();
        return double(clock.nsecsElapsed()) / 1e6;
    }
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({QStringLiteral("runner"), QStringLiteral("the kelmor-show binary"), QStringLiteral("path")});
    parser.addOption({QStringLiteral("rounds"), QStringLiteral("rounds per repetition (500)"), QStringLiteral("n"),
                      QStringLiteral("500")});
    parser.addOption({QStringLiteral("repetitions"), QStringLiteral("repetitions (5)"), QStringLiteral("n"),
                      QStringLiteral("5")});
    parser.process(app);
    const int rounds = qMax(10, parser.value(QStringLiteral("rounds")).toInt());
    const int repetitions = qMax(3, parser.value(QStringLiteral("repetitions")).toInt());
    if (!parser.isSet(QStringLiteral("runner"))) {
        std::fprintf(stderr, "--runner PATH is required\n");
        return 1;
    }

    QProcess runner;
    runner.setProcessChannelMode(QProcess::SeparateChannels);
    runner.setStandardErrorFile(QProcess::nullDevice());
    runner.start(parser.value(QStringLiteral("runner")),
                 {QStringLiteral("--ao"), QStringLiteral("null"), QStringLiteral("--no-progress"), QStringLiteral("--listen"),
                  QStringLiteral("0"), QStringLiteral("--osc-port"), QStringLiteral("0")});
    const int tcpPort = portFrom(runner, "listening");
    Clients clients;
    clients.oscPort = quint16(portFrom(runner, "oscListening"));
    clients.tcp.connectToHost(QHostAddress(QHostAddress::LocalHost), quint16(tcpPort));
    if (tcpPort == 0 || clients.oscPort == 0 || !clients.tcp.waitForConnected(5000)
        || !clients.udp.bind(QHostAddress(QHostAddress::LocalHost), 0)) {
        std::fprintf(stderr, "the runner did not start (tcp %d, osc %d)\n", tcpPort, clients.oscPort);
        return 1;
    }
    // Warm up both paths.
    for (int i = 0; i < 50; ++i) {
        clients.viaTcp();
        clients.viaOsc();
    }

    std::printf("load average before: %s\n", qPrintable(loadAverage()));
    std::printf("%-4s %10s %10s %10s %10s %8s\n", "rep", "tcp p50", "tcp p99", "osc p50", "osc p99", "osc/tcp");
    std::vector<double> ratios;
    int failures = 0;
    for (int rep = 1; rep <= repetitions; ++rep) {
        std::vector<double> tcp, osc;
        for (int i = 0; i < rounds; ++i) {
            const bool oscFirst = (i % 2) == 1;
            const double first = oscFirst ? clients.viaOsc() : clients.viaTcp();
            const double second = oscFirst ? clients.viaTcp() : clients.viaOsc();
            const double t = oscFirst ? second : first;
            const double o = oscFirst ? first : second;
            if (t < 0 || o < 0) {
                ++failures;
                continue;
            }
            tcp.push_back(t);
            osc.push_back(o);
        }
        const double ratio = percentile(osc, 0.5) / percentile(tcp, 0.5);
        ratios.push_back(ratio);
        std::printf("%-4d %8.3fms %8.3fms %8.3fms %8.3fms %8.2f\n", rep, percentile(tcp, 0.5), percentile(tcp, 0.99),
                    percentile(osc, 0.5), percentile(osc, 0.99), ratio);
    }
    std::printf("median osc/tcp ratio of the p50 round trips: %.2f (%d rounds x %d repetitions, %d timed out)\n",
                percentile(ratios, 0.5), rounds, repetitions, failures);
    std::printf("load average after: %s\n", qPrintable(loadAverage()));

    runner.kill();
    runner.waitForFinished(5000);
    return failures == 0 ? 0 : 2;
}

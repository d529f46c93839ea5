// Fuzz target: bytes as they arrive on a show file, stdin or a TCP
// connection, cut into lines by the line assembler (in chunks whose sizes
// come from the input too) and each line parsed as a show step, variables
// expanded. Nothing may crash, leak, hang or grow without bound.
#include "LineAssembler.h"
#include "StepParser.h"

#include <cstddef>
#include <cstdint>

namespace {

// A small line cap, so that the fuzzer reaches the "line too long" path.
constexpr int kLineCap = 4096;

const QMap<QString, QString>& variables()
{
    static const QMap<QString, QString> vars{{QStringLiteral("media"), QStringLiteral("/media")},
                                              {QStringLiteral("out"), QStringLiteral("/out")},
                                              {QStringLiteral("x"), QStringLiteral("${x}")}};
    return vars;
}

void drain(LineAssembler& lines)
{
    while (lines.hasLine()) {
        const RawLine raw = lines.takeLine();
        Step step;
        QString problem;
        const ParseOutcome outcome = parseStep(raw, variables(), step, problem);
        if (outcome == ParseOutcome::Parsed && step.op.isEmpty())
            __builtin_trap(); // a parsed step always has its op
        if (outcome == ParseOutcome::Error && problem.isEmpty())
            __builtin_trap(); // an error always says why
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    // The first byte picks the chunk size the stream arrives in.
    const std::size_t chunk = 1 + data[0] * 37u;
    LineAssembler lines(kLineCap);
    const char* bytes = reinterpret_cast<const char*>(data + 1);
    std::size_t left = size - 1;
    while (left > 0) {
        const std::size_t n = left < chunk ? left : chunk;
        lines.feed(bytes, static_cast<qint64>(n));
        drain(lines);
        bytes += n;
        left -= n;
    }
    lines.finish();
    drain(lines);
    return 0;
}

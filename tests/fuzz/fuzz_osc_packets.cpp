// Fuzz target: datagrams as they arrive on the OSC port, decoded by liblo
// (OscDecoder), each message routed to a show step, subscription or
// refusal (OscAddressMap), and each step parsed as the runner parses it.
// A decoded message made only of types the runner sends is encoded again
// and must decode to the same address and types. Nothing may crash, leak,
// hang or grow without bound.
#include "StepParser.h"
#include "osc/OscAddressMap.h"
#include "osc/OscDecoder.h"
#include "osc/OscEncoder.h"

#include <cstddef>
#include <cstdint>

namespace {

OscDecoder& decoder()
{
    static OscDecoder instance; // one liblo server for the whole run
    return instance;
}

bool encodable(const OscMessage& message)
{
    for (const OscArg& arg : message.args) {
        if (!QByteArray("ihfdsSTFN").contains(arg.type))
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (!decoder().isReady())
        __builtin_trap(); // the decoder must come up in any environment the tests run in
    const QByteArray packet(reinterpret_cast<const char*>(data), int(size));
    QVector<OscMessage> messages;
    QString problem;
    if (!decoder().decode(packet, messages, problem)) {
        if (problem.isEmpty() || !messages.isEmpty())
            __builtin_trap(); // a refusal says why and keeps nothing
        return 0;
    }
    if (messages.size() > OscDecoder::kMaxMessages)
        __builtin_trap();
    for (const OscMessage& message : messages) {
        const OscRoute route = routeOscMessage(message);
        if (route.kind == OscRoute::Kind::Refused && route.problem.isEmpty())
            __builtin_trap();
        if (route.kind == OscRoute::Kind::Step) {
            RawLine raw;
            raw.number = 1;
            raw.text = route.step;
            Step step;
            QString stepProblem;
            const ParseOutcome parsed = parseStep(raw, {}, step, stepProblem);
            // What the controller addresses build is always a valid step.
            if (message.path != "/kelmor/step" && parsed != ParseOutcome::Parsed)
                __builtin_trap();
        }
        if (encodable(message)) {
            QVector<OscMessage> again;
            QString againProblem;
            const QByteArray encoded = oscenc::encode(message);
            if (!encoded.isEmpty() && decoder().decode(encoded, again, againProblem)
                && (again.size() != 1 || again[0].path != message.path || again[0].types() != message.types()))
                __builtin_trap();
        }
    }
    return 0;
}

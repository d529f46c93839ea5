#include "OscEncoder.h"

#include <lo/lo.h>

#include <cstdlib>

namespace oscenc {

QByteArray encode(const OscMessage& message)
{
    lo_message m = lo_message_new();
    if (!m)
        return QByteArray();
    bool ok = true;
    for (const OscArg& arg : message.args) {
        int result = 0;
        switch (arg.type) {
        case 'i': result = lo_message_add_int32(m, int32_t(arg.integer)); break;
        case 'h': result = lo_message_add_int64(m, int64_t(arg.integer)); break;
        case 'f': result = lo_message_add_float(m, float(arg.real)); break;
        case 'd': result = lo_message_add_double(m, arg.real); break;
        case 's': result = lo_message_add_string(m, arg.text.constData()); break;
        case 'S': result = lo_message_add_symbol(m, arg.text.constData()); break;
        case 'T': result = lo_message_add_true(m); break;
        case 'F': result = lo_message_add_false(m); break;
        case 'N': result = lo_message_add_nil(m); break;
        default: result = -1; break;
        }
        ok = ok && result == 0;
    }
    QByteArray packet;
    if (ok) {
        std::size_t size = 0;
        void* data = lo_message_serialise(m, message.path.constData(), nullptr, &size);
        if (data) {
            packet = QByteArray(static_cast<const char*>(data), int(size));
            std::free(data);
        }
    }
    lo_message_free(m);
    return packet;
}

QByteArray encodeString(const QByteArray& path, const QByteArray& text)
{
    OscMessage message;
    message.path = path;
    OscArg arg;
    arg.type = 's';
    arg.text = text;
    message.args.append(arg);
    return encode(message);
}

} // namespace oscenc

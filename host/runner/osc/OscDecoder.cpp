#include "OscDecoder.h"

#include <lo/lo.h>

#include <QByteArrayMatcher>
#include <QDir>
#include <QFile>
#include <cstring>

namespace {

/// The decoder whose packet liblo is dispatching on this thread (liblo's
/// error callback carries no user pointer).
thread_local OscDecoder* tCurrent = nullptr;

/// A readable reason for liblo's error numbers (lo_errors.h).
QString libloProblem(int code)
{
    switch (-code) {
    case LO_ESIZE: return QStringLiteral("a size field does not match the packet");
    case LO_EINVALIDBUND: return QStringLiteral("invalid bundle");
    case LO_EINVALIDPATH: return QStringLiteral("invalid address");
    case LO_ETERM: return QStringLiteral("an address or string is not terminated");
    case LO_EPAD: return QStringLiteral("bad padding");
    case LO_EINVALIDTYPE: return QStringLiteral("invalid type tags");
    case LO_EBADTYPE: return QStringLiteral("unknown type tag");
    case LO_EINVALIDARG: return QStringLiteral("invalid argument data");
    case LO_EINVALIDTIME: return QStringLiteral("invalid time tag");
    case LO_TOOBIG: return QStringLiteral("packet too big");
    default: return QStringLiteral("liblo error %1").arg(-code);
    }
}

} // namespace

struct OscDecoder::Callbacks
{
    static int message(const char* path, const char* types, lo_arg** argv, int argc, lo_message,
                       void* user)
    {
        auto* self = static_cast<OscDecoder*>(user);
        if (!self->m_messages || !self->m_problem.isEmpty())
            return 0;
        if (self->m_depth > kMaxBundleDepth) {
            self->refuse(QStringLiteral("bundles nested deeper than %1").arg(kMaxBundleDepth));
            return 0;
        }
        if (self->m_messages->size() >= kMaxMessages) {
            self->refuse(QStringLiteral("more than %1 messages in one packet").arg(kMaxMessages));
            return 0;
        }
        const std::size_t pathBytes = std::strlen(path);
        if (pathBytes > std::size_t(kMaxPathBytes)) {
            self->refuse(QStringLiteral("an address of %1 bytes (at most %2)").arg(pathBytes).arg(kMaxPathBytes));
            return 0;
        }
        OscMessage decoded;
        decoded.path = QByteArray(path, int(pathBytes));
        decoded.args.reserve(argc);
        for (int i = 0; i < argc; ++i) {
            // liblo's argument pointers are 4-byte aligned inside the packet:
            // values are copied out of the bytes, not read through lo_arg.
            const char* raw = reinterpret_cast<const char*>(argv[i]);
            OscArg arg;
            arg.type = types[i];
            switch (arg.type) {
            case LO_INT32: {
                int32_t v;
                std::memcpy(&v, raw, sizeof v);
                arg.integer = v;
                break;
            }
            case LO_INT64: {
                int64_t v;
                std::memcpy(&v, raw, sizeof v);
                arg.integer = v;
                break;
            }
            case LO_FLOAT: {
                float v;
                std::memcpy(&v, raw, sizeof v);
                arg.real = v;
                break;
            }
            case LO_DOUBLE: {
                double v;
                std::memcpy(&v, raw, sizeof v);
                arg.real = v;
                break;
            }
            case LO_STRING:
            case LO_SYMBOL: {
                const std::size_t bytes = std::strlen(raw);
                if (bytes > std::size_t(kMaxStringBytes)) {
                    self->refuse(QStringLiteral("a string of %1 bytes (at most %2)").arg(bytes).arg(kMaxStringBytes));
                    return 0;
                }
                arg.text = QByteArray(raw, int(bytes));
                break;
            }
            default: break; // booleans, nil, impulse: the tag says it all; others are refused later
            }
            decoded.args.append(arg);
        }
        self->m_messages->append(decoded);
        return 0; // handled
    }

    static int bundleStart(lo_timetag, void* user)
    {
        ++static_cast<OscDecoder*>(user)->m_depth;
        return 0;
    }

    static int bundleEnd(void* user)
    {
        --static_cast<OscDecoder*>(user)->m_depth;
        return 0;
    }

    static void error(int number, const char* text, const char* where)
    {
        if (tCurrent && tCurrent->m_libloError.isEmpty())
            tCurrent->m_libloError = QStringLiteral("%1 (liblo %2%3%4)")
                                         .arg(QString::fromUtf8(text ? text : ""))
                                         .arg(number)
                                         .arg(where && *where ? QStringLiteral(": ") : QString())
                                         .arg(QString::fromUtf8(where ? where : "").left(64));
    }
};

OscDecoder::OscDecoder()
    : m_dir(QDir::tempPath() + QStringLiteral("/kelmor-osc-XXXXXX"))
{
    if (!m_dir.isValid()) {
        m_setupProblem = QStringLiteral("OscDecoder: cannot make a private folder: %1").arg(m_dir.errorString());
        return;
    }
    const QByteArray path = QFile::encodeName(m_dir.filePath(QStringLiteral("s")));
    if (path.size() >= 100) { // sockaddr_un holds 108 bytes
        m_setupProblem = QStringLiteral("OscDecoder: the temporary folder's path is too long: %1").arg(m_dir.path());
        return;
    }
    tCurrent = this;
    lo_server server = lo_server_new_with_proto(path.constData(), LO_UNIX, &Callbacks::error);
    tCurrent = nullptr;
    if (!server) {
        m_setupProblem = QStringLiteral("OscDecoder: liblo could not make its server%1")
                             .arg(m_libloError.isEmpty() ? QString() : QStringLiteral(": ") + m_libloError);
        return;
    }
    lo_server_enable_queue(server, 0, 1); // time tags: take every message at once
    lo_server_add_method(server, nullptr, nullptr, &Callbacks::message, this);
    lo_server_add_bundle_handlers(server, &Callbacks::bundleStart, &Callbacks::bundleEnd, this);
    m_server = server;
}

OscDecoder::~OscDecoder()
{
    if (m_server)
        lo_server_free(static_cast<lo_server>(m_server));
}

void OscDecoder::refuse(const QString& problem)
{
    if (m_problem.isEmpty())
        m_problem = problem;
}

bool OscDecoder::decode(const QByteArray& packet, QVector<OscMessage>& messages, QString& problem)
{
    messages.clear();
    if (!m_server) {
        problem = m_setupProblem;
        return false;
    }
    if (packet.isEmpty()) {
        problem = QStringLiteral("an empty packet");
        return false;
    }
    if (packet.size() > kMaxPacketBytes) {
        problem = QStringLiteral("a packet of %1 bytes (at most %2)").arg(packet.size()).arg(kMaxPacketBytes);
        return false;
    }
    // liblo checks a bundle's elements again at every level it descends,
    // so the work grows with the square of the nesting (milliseconds for the
    // deepest datagram). Counting the bundle markers first bounds it without
    // reading the packet's structure.
    static const QByteArrayMatcher marker(QByteArray("#bundle\0", 8));
    int bundles = 0;
    for (int at = marker.indexIn(packet); at >= 0; at = marker.indexIn(packet, at + 8)) {
        if (++bundles > kMaxBundles) {
            problem = QStringLiteral("more than %1 bundles in one packet").arg(kMaxBundles);
            return false;
        }
    }
    // liblo converts byte order in place: it gets a copy of its own.
    QByteArray copy(packet.constData(), packet.size());
    m_messages = &messages;
    m_problem.clear();
    m_libloError.clear();
    m_depth = 0;
    tCurrent = this;
    const int used = lo_server_dispatch_data(static_cast<lo_server>(m_server), copy.data(), std::size_t(copy.size()));
    tCurrent = nullptr;
    m_messages = nullptr;

    if (m_problem.isEmpty() && used < 0)
        m_problem = QStringLiteral("malformed packet: %1").arg(m_libloError.isEmpty() ? libloProblem(used) : m_libloError);
    if (!m_problem.isEmpty()) {
        messages.clear();
        problem = m_problem;
        return false;
    }
    return true;
}

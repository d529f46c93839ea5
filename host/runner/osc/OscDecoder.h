// OscDecoder: turns one received OSC packet (a message or a bundle) into
// messages, with liblo doing the decoding.
//
// liblo 0.31 decodes bundles only while dispatching them through a server,
// and its servers always own a socket. The decoder's server is therefore a
// Unix datagram socket in a private (0700) temporary folder that nothing
// ever sends to or reads from; packets received on the runner's own UDP
// socket are handed to it with lo_server_dispatch_data. Time tags are not
// honoured (liblo's queue is off): every message of a packet is taken at
// once, in order.
//
// A packet is taken whole or not at all: it is refused (and none of its
// messages is kept) when liblo finds it malformed, when bundles nest deeper
// than kMaxBundleDepth, when it holds more than kMaxMessages messages, an
// address longer than kMaxPathBytes or a string longer than kMaxStringBytes,
// or when it is larger than kMaxPacketBytes (more than one UDP datagram can
// carry). liblo walks nested bundles recursively and checks each level's
// elements again, which costs milliseconds for the ~3300 levels a datagram
// can hold; a packet with more than kMaxBundles bundle markers ("#bundle"
// and its terminator, counted, not parsed) is therefore refused before
// liblo sees it.
//
// Threading: one thread at a time (the GUI thread in the runner); liblo's
// error callback has no user pointer, so the decoder in use is remembered
// per thread.
#pragma once

#include "OscMessage.h"

#include <QString>
#include <QTemporaryDir>
#include <QVector>

class OscDecoder
{
public:
    static constexpr int kMaxBundleDepth = 8;
    static constexpr int kMaxBundles = 128;
    static constexpr int kMaxMessages = 64;
    static constexpr int kMaxPathBytes = 1024;
    static constexpr int kMaxStringBytes = 32 * 1024;
    static constexpr int kMaxPacketBytes = 65536;

    OscDecoder();
    ~OscDecoder();
    OscDecoder(const OscDecoder&) = delete;
    OscDecoder& operator=(const OscDecoder&) = delete;

    /// false when liblo's server could not be made (`problem()` says why).
    bool isReady() const { return m_server != nullptr; }
    const QString& setupProblem() const { return m_setupProblem; }

    /// Decodes `packet`; false (and `problem`) when it is refused. A valid
    /// empty bundle gives no messages.
    bool decode(const QByteArray& packet, QVector<OscMessage>& messages, QString& problem);

private:
    struct Callbacks; // liblo's handlers (OscDecoder.cpp)
    friend struct Callbacks;
    void refuse(const QString& problem);

    // All fields: the thread that decodes.
    QTemporaryDir m_dir;              // holds the server's socket file
    void* m_server = nullptr;         // lo_server, owned (lo_server_free)
    QString m_setupProblem;
    // State of the packet being decoded (decode() only):
    QVector<OscMessage>* m_messages = nullptr;
    QString m_problem;                // first reason to refuse the packet
    QString m_libloError;             // what liblo's error callback said
    int m_depth = 0;                  // bundles open
};

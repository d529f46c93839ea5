// OscAllowList: which senders may drive the runner over OSC. OSC has no way
// to present a token, so beyond loopback the sender's address is the only
// thing to go by: a datagram is taken only from a loopback address (always)
// or from an address inside one of the operator's networks
// (--osc-allow ADDRESS/PREFIX, IPv4 or IPv6; a bare address is /32 or
// /128). IPv4 senders seen through an IPv6 socket (::ffff:a.b.c.d) are
// matched as IPv4.
//
// Threading: a value type; set up before the event loop, read on the GUI
// thread.
#pragma once

#include <QHostAddress>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class OscAllowList
{
public:
    static constexpr int kMaxEntries = 64;

    /// Parses the operator's entries; false (and `problem`) for one that is
    /// not ADDRESS or ADDRESS/PREFIX, or for more than kMaxEntries.
    bool parse(const QStringList& entries, QString& problem);
    bool isEmpty() const { return m_networks.isEmpty(); }
    /// Whether datagrams from `sender` are taken.
    bool allows(const QHostAddress& sender) const;
    /// The networks, as "address/prefix".
    QStringList describe() const;

private:
    QList<QPair<QHostAddress, int>> m_networks; // set up before the event loop, then read only

};

/// `address` without an IPv4-mapped IPv6 wrapping.
QHostAddress plainAddress(const QHostAddress& address);

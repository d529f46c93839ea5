// Spout texture reception. There is no texture sharing between processes on
// this platform: the node keeps what it was asked and says so once per start.
#include "SpoutNode.h"

#include <QDebug>

SpoutNode::SpoutNode(QObject* parent)
    : QObject(parent)
{
}

SpoutNode::~SpoutNode() = default;

void SpoutNode::playSpout(QString sourceName)
{
    m_source = sourceName;
    m_playing = true;
    ++m_playCount;
    qDebug() << "SpoutNode::playSpout" << sourceName
             << "- texture sharing is not available on this platform; nothing is received";
}

void SpoutNode::stop()
{
    m_playing = false;
}

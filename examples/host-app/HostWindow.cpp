#include "HostWindow.h"

#include "LayerController.h"

#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QStatusBar>
#include <QVBoxLayout>

#include <limits>

namespace {

constexpr int kMaxFadeMs = 60000;
constexpr int kDefaultFadeMs = 1000;

} // namespace

HostWindow::HostWindow(LayerController& layer, QWidget* parent) : QMainWindow(parent), m_layer(layer)
{
    setWindowTitle(QStringLiteral("kelmor host example"));
    buildUi();
    connectLayer();
    setMediaControlsEnabled(false);
}

HostWindow::~HostWindow() = default;

void HostWindow::buildUi()
{
    auto* central = new QWidget(this);
    auto* column = new QVBoxLayout(central);

    auto* fileRow = new QHBoxLayout;
    m_open = new QPushButton(QStringLiteral("Open…"), central);
    m_fileLabel = new QLabel(QStringLiteral("no file"), central);
    m_fileLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    fileRow->addWidget(m_open);
    fileRow->addWidget(m_fileLabel, 1);
    column->addLayout(fileRow);

    auto* transport = new QHBoxLayout;
    m_play = new QPushButton(QStringLiteral("Play"), central);
    m_pause = new QPushButton(QStringLiteral("Pause"), central);
    m_stop = new QPushButton(QStringLiteral("Stop"), central);
    m_fade = new QPushButton(QStringLiteral("Fade out"), central);
    m_fadeMs = new QSpinBox(central);
    m_fadeMs->setRange(0, kMaxFadeMs);
    m_fadeMs->setSingleStep(100);
    m_fadeMs->setValue(kDefaultFadeMs);
    m_fadeMs->setSuffix(QStringLiteral(" ms"));
    for (QWidget* w : {static_cast<QWidget*>(m_play), static_cast<QWidget*>(m_pause),
                       static_cast<QWidget*>(m_stop), static_cast<QWidget*>(m_fade),
                       static_cast<QWidget*>(m_fadeMs)})
        transport->addWidget(w);
    column->addLayout(transport);

    auto* positionRow = new QHBoxLayout;
    m_slider = new QSlider(Qt::Horizontal, central);
    m_slider->setRange(0, 0);
    m_positionLabel = new QLabel(formatMs(0), central);
    m_positionLabel->setMinimumWidth(m_positionLabel->fontMetrics().horizontalAdvance(
        QStringLiteral("00:00.000 / 00:00.000")));
    positionRow->addWidget(m_slider, 1);
    positionRow->addWidget(m_positionLabel);
    column->addLayout(positionRow);

    setCentralWidget(central);
    statusBar()->showMessage(QStringLiteral("ready for a file"));
    resize(520, 160);
}

void HostWindow::connectLayer()
{
    connect(m_open, &QPushButton::clicked, this, &HostWindow::chooseFile);
    connect(m_play, &QPushButton::clicked, &m_layer, &LayerController::play);
    connect(m_pause, &QPushButton::clicked, &m_layer, &LayerController::pause);
    connect(m_stop, &QPushButton::clicked, &m_layer, &LayerController::stop);
    connect(m_fade, &QPushButton::clicked, this, &HostWindow::toggleFade);

    // The slider follows the layer except while the user holds it; letting
    // go (or clicking beside the handle) seeks.
    connect(m_slider, &QSlider::sliderReleased, this, &HostWindow::seekToSlider);
    connect(m_slider, &QSlider::actionTriggered, this, [this](int action) {
        if (action != QAbstractSlider::SliderMove && !m_slider->isSliderDown())
            QMetaObject::invokeMethod(this, &HostWindow::seekToSlider, Qt::QueuedConnection);
    });
    connect(m_slider, &QSlider::sliderMoved, this, [this](int value) {
        m_positionLabel->setText(formatMs(value) + QStringLiteral(" / ") + formatMs(m_lengthMs));
    });

    connect(&m_layer, &LayerController::loaded, this, &HostWindow::onLoaded);
    connect(&m_layer, &LayerController::positionChanged, this, &HostWindow::onPosition);
    connect(&m_layer, &LayerController::ready, this, [this] { setMediaControlsEnabled(true); });
    connect(&m_layer, &LayerController::fadeFinished, this, [this](bool fadeOut) {
        m_fadedOut = fadeOut;
        m_fade->setText(fadeOut ? QStringLiteral("Fade in") : QStringLiteral("Fade out"));
    });
    connect(&m_layer, &LayerController::status, this,
            [this](const QString& line) { statusBar()->showMessage(line); });
    connect(&m_layer, &LayerController::mediaFailed, this, [this] { setMediaControlsEnabled(false); });
}

void HostWindow::setMediaControlsEnabled(bool enabled)
{
    for (QWidget* w : {static_cast<QWidget*>(m_play), static_cast<QWidget*>(m_pause),
                       static_cast<QWidget*>(m_stop), static_cast<QWidget*>(m_fade),
                       static_cast<QWidget*>(m_slider)})
        w->setEnabled(enabled);
}

void HostWindow::chooseFile()
{
    const QString path = QFileDialog::getOpenFileName(
        this, QStringLiteral("Choose a media file"), QFileInfo(m_layer.file()).absolutePath(),
        QStringLiteral("Video (*.mp4 *.mkv *.mov *.webm *.avi *.m4v *.ts);;All files (*)"));
    if (path.isEmpty())
        return;
    QString error;
    setMediaControlsEnabled(false);
    if (!m_layer.load(path, error))
        statusBar()->showMessage(error);
}

void HostWindow::toggleFade()
{
    // Alternates: out from the visible picture, in from the faded one.
    const bool fadeOut = !m_fadedOut;
    m_layer.fade(fadeOut, m_fadeMs->value());
    m_fadedOut = fadeOut;
    m_fade->setText(fadeOut ? QStringLiteral("Fade in") : QStringLiteral("Fade out"));
}

void HostWindow::onLoaded(const QString& path, qint64 lengthMs)
{
    m_lengthMs = lengthMs;
    m_fileLabel->setText(QFileInfo(path).fileName());
    m_fileLabel->setToolTip(path);
    m_slider->setRange(0, lengthMs > 0 ? static_cast<int>(qMin<qint64>(lengthMs, std::numeric_limits<int>::max())) : 0);
    m_fadedOut = false;
    m_fade->setText(QStringLiteral("Fade out"));
    onPosition(0);
}

void HostWindow::onPosition(qint64 msec)
{
    const int value = static_cast<int>(qBound<qint64>(0, msec, std::numeric_limits<int>::max()));
    // Without a known length the range grows with what has been played.
    if (m_lengthMs <= 0 && value > m_slider->maximum())
        m_slider->setMaximum(value);
    if (!m_slider->isSliderDown()) {
        const QSignalBlocker quiet(m_slider);
        m_slider->setValue(value);
        m_positionLabel->setText(formatMs(msec) + QStringLiteral(" / ") + formatMs(m_lengthMs));
    }
}

void HostWindow::seekToSlider()
{
    m_layer.seek(m_slider->sliderPosition());
}

void HostWindow::closeEvent(QCloseEvent* event)
{
    // The host ends the layer and the screen first; the program quits when
    // that is done.
    event->ignore();
    if (m_closing)
        return;
    m_closing = true;
    statusBar()->showMessage(QStringLiteral("closing…"));
    emit quitRequested();
}

QString HostWindow::formatMs(qint64 msec)
{
    if (msec < 0)
        return QStringLiteral("--:--.---");
    const qint64 minutes = msec / 60000;
    const qint64 seconds = (msec / 1000) % 60;
    return QStringLiteral("%1:%2.%3")
        .arg(minutes, 2, 10, QLatin1Char('0'))
        .arg(seconds, 2, 10, QLatin1Char('0'))
        .arg(msec % 1000, 3, 10, QLatin1Char('0'));
}

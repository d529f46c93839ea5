// HostWindow: the example host's control window. A file picker, play / pause
// / stop, a fade button with its length, the layer's position (a label and a
// slider that follows it; dragging the slider seeks) and a status line with
// the module's last report.
//
// Threading: GUI thread. Ownership: the window refers to the controller,
// which outlives it.
#pragma once

#include <QMainWindow>

class LayerController;
class QLabel;
class QPushButton;
class QSlider;
class QSpinBox;

/// The control window of the example host. GUI thread.
class HostWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit HostWindow(LayerController& layer, QWidget* parent = nullptr);
    ~HostWindow() override;

signals:
    /// The window was asked to close: the host should shut down.
    void quitRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildUi();
    void connectLayer();
    void chooseFile();
    void toggleFade();
    void onLoaded(const QString& path, qint64 lengthMs);
    void onPosition(qint64 msec);
    void seekToSlider();
    void setMediaControlsEnabled(bool enabled);
    static QString formatMs(qint64 msec);

    // All fields: GUI thread. Widgets are children of the window.
    LayerController& m_layer;
    QLabel* m_fileLabel = nullptr;
    QPushButton* m_open = nullptr;
    QPushButton* m_play = nullptr;
    QPushButton* m_pause = nullptr;
    QPushButton* m_stop = nullptr;
    QPushButton* m_fade = nullptr;
    QSpinBox* m_fadeMs = nullptr;
    QLabel* m_positionLabel = nullptr;
    QSlider* m_slider = nullptr;
    bool m_fadedOut = false;       // the next fade is a fade-in
    qint64 m_lengthMs = -1;        // the loaded file's length; -1 unknown
    bool m_closing = false;        // quitRequested() was emitted
};

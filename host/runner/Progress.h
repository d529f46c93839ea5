// Progress: once a second, while screens are offscreen or a screen is being
// recorded (when nobody sees the show), a line on stderr says where it is:
//   kelmor-show: demo.show 12.0 s, step 14/40, offscreen, recording screen 1
//
// Threading: GUI thread.
#pragma once

#include <QObject>
#include <QPointer>

class ScreenSteps;
class StepSource;
class QTimer;

class Progress : public QObject
{
    Q_OBJECT
public:
    Progress(ScreenSteps& screens, QObject* parent = nullptr);
    /// The source whose steps the line counts (the show file, or stdin).
    void follow(StepSource* source);
    void start();
    void stop();

private:
    void report();

    // All fields: GUI thread.
    ScreenSteps& m_screens;
    QPointer<StepSource> m_source;
    QString m_sourceName;
    int m_lastSteps = 0;
    int m_totalSteps = -1;
    QTimer* m_timer = nullptr; // child
};

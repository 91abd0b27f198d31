#pragma once

#include "Harness/ChildProcess.h"

#include <QImage>
#include <QPoint>
#include <QString>

#include <functional>
#include <string>
#include <vector>

namespace tolvera::test {

// What tests on a desktop of their own have in common. One thread, with the application object made.

// Runs the event loop until the condition holds; false after 10 s.
bool eventually(const std::function<bool()>& condition);
// Lets everything that is under way come to rest: windows, the window manager, drawing.
void settleDesktop();

void movePointer(QPoint to);
void press(QPoint at);
void release();
// Presses at a point, moves as a hand does and lets go.
void drag(QPoint from, QPoint to);

// What is on the screen.
QImage screenshot();
// Whether a colour is this one but for rounding.
bool resembles(const QColor& color, const QColor& other);

// A line of the table of promises that is printed at the end, and an expectation.
void promise(const std::string& text, bool kept);
// Prints the table.
void printPromises();

// The colour of the window of another program that fills the screen.
inline const QColor otherColor(200, 40, 160);
// This program again, as another one with a full-screen window that has the focus, once its window is there.
// The keys that it is given are written to `keys`. Its windows are made by Qt's platform of that name.
ChildProcess startOtherProgram(const std::string& keys, const std::string& platform = "xcb");
// What such a program does instead of the tests.
int runOtherProgram(const char* keys);

} // namespace tolvera::test

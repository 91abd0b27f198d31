#pragma once

class QString;

// Notifications of the desktop that each login sees once.
namespace tolvera::LoginNotice {

// Shows the text, unless this login has seen one of that name. Does nothing where the desktop shows no
// notifications, or without a runtime directory. Main thread.
void show(const QString& name, const QString& title, const QString& text);

} // namespace tolvera::LoginNotice

#pragma once

#include <QString>

class QWidget;

/// Where the application shows its messages: message boxes normally; tests install a
/// recorder so that nothing waits for a click.
class UserMessages {
public:
    enum class Answer { yes, no, cancel };

    virtual ~UserMessages() = default;
    /// An error or a warning that the user acknowledges.
    virtual void error(QWidget* parent, const QString& text) = 0;
    /// A question with Yes, No and, if `withCancel`, Cancel.
    virtual Answer ask(QWidget* parent, const QString& text, bool withCancel) = 0;

    /// The installed sink (message boxes unless a test installed another).
    static UserMessages& current();
    /// Installs `messages` (not owned); null restores the message boxes.
    static void install(UserMessages* messages);
};

// engine/support: what the whole engine builds on: errors, counters, dates, text, progress.

#pragma once

#include <QString>

#include <exception>
#include <optional>

namespace kestrel::engine {

// The program's own runtime errors. The numbers are the ones users of the
// earlier versions know from their error boxes.
enum class ErrorCode {
    None = 0,
    Overflow = 6,
    SubscriptOutOfRange = 9,
    TypeMismatch = 13,
    OutOfStringSpace = 14,
    BadFileName = 52,
    BadRecordLength = 59, // an old-format file without its format marker
    FileNotFound = 53,
    InputPastEndOfFile = 62,
    SystemError = 1000, // an error the operating system reported; its text says which
};

// The text shown for an error code ("Overflow", "Subscript out of range", ...).
QString errorText(ErrorCode code);

// Thrown inside the engine where an operation fails at run time (an
// overflow, an index outside the table, bad data in a file). Every public
// operation catches it and turns it into an Outcome, so it never leaves the
// engine.
class RuntimeError : public std::exception {
public:
    explicit RuntimeError(ErrorCode code, QString text = {});
    ErrorCode code() const { return m_code; }
    // The description shown to the user: the system's text for SystemError,
    // otherwise the program's text for the code.
    QString text() const { return m_text; }
    const char* what() const noexcept override;

private:
    ErrorCode m_code;
    QString m_text;
    mutable QByteArray m_what;
};

[[noreturn]] void raise(ErrorCode code);
// Raises SystemError with strerror(errnoValue) as its text.
[[noreturn]] void raiseSystemError(int errnoValue);

enum class MessageIcon { Information, Exclamation };

// A message box the user must see: the engine returns it, the windows show it
// and the command line prints it as "Title: text".
struct UserMessage {
    QString title;
    QString text;
    MessageIcon icon = MessageIcon::Exclamation;
};

// Result of a long engine operation. ok is the operation's Boolean result;
// message, when present, is what the caller must show (it may come with ok
// true for notices); summary is the status-bar line of a completed scan, load
// or import.
struct Outcome {
    bool ok = false;
    bool cancelled = false;
    std::optional<UserMessage> message;
    QString summary;
    ErrorCode error = ErrorCode::None;

    static Outcome success() {
        Outcome o;
        o.ok = true;
        return o;
    }
    static Outcome failure(ErrorCode code = ErrorCode::None) {
        Outcome o;
        o.error = code;
        return o;
    }
    static Outcome failure(UserMessage message, ErrorCode code = ErrorCode::None) {
        Outcome o;
        o.message = std::move(message);
        o.error = code;
        return o;
    }
};

// An exception caught at the boundary of a long operation, as the user is
// told of it.
struct CaughtError {
    ErrorCode code = ErrorCode::SystemError;
    QString text;
};

// The exception being handled; call only inside a catch block. A
// RuntimeError gives its code and text; running out of memory and a
// std::system_error (a thread that cannot be started) give the system's own
// text; any other exception its what().
CaughtError caughtError();

// Runs a long operation and turns an exception escaping it into a failure
// with the given title, so that none reaches the event loop or ends the
// command line.
template <typename Operation>
Outcome guardedOperation(const QString& title, Operation&& operation) {
    try {
        return operation();
    } catch (...) {
        const CaughtError e = caughtError();
        return Outcome::failure(UserMessage{title, e.text, MessageIcon::Exclamation}, e.code);
    }
}

} // namespace kestrel::engine

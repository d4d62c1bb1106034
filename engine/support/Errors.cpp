#include "Errors.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

namespace kestrel::engine {

QString errorText(ErrorCode code) {
    switch (code) {
    case ErrorCode::None:
        return {};
    case ErrorCode::Overflow:
        return QStringLiteral("Overflow");
    case ErrorCode::SubscriptOutOfRange:
        return QStringLiteral("Subscript out of range");
    case ErrorCode::TypeMismatch:
        return QStringLiteral("Type mismatch");
    case ErrorCode::OutOfStringSpace:
        return QStringLiteral("Out of string space");
    case ErrorCode::BadFileName:
        return QStringLiteral("Bad file name or number");
    case ErrorCode::BadRecordLength:
        return QStringLiteral("Bad record length");
    case ErrorCode::FileNotFound:
        return QStringLiteral("File not found");
    case ErrorCode::InputPastEndOfFile:
        return QStringLiteral("Input past end of file");
    case ErrorCode::SystemError:
        return QStringLiteral("System error");
    }
    return QStringLiteral("Error %1").arg(int(code));
}

RuntimeError::RuntimeError(ErrorCode code, QString text)
    : m_code(code), m_text(text.isEmpty() ? errorText(code) : std::move(text)) {}

const char* RuntimeError::what() const noexcept {
    if (m_what.isEmpty())
        m_what = m_text.toUtf8();
    return m_what.constData();
}

void raise(ErrorCode code) {
    throw RuntimeError(code);
}

void raiseSystemError(int errnoValue) {
    throw RuntimeError(ErrorCode::SystemError, QString::fromLocal8Bit(std::strerror(errnoValue)));
}

CaughtError caughtError() {
    try {
        throw;
    } catch (const RuntimeError& e) {
        return {e.code(), e.text()};
    } catch (const std::bad_alloc&) {
        return {ErrorCode::SystemError, QString::fromLocal8Bit(std::strerror(ENOMEM))};
    } catch (const std::system_error& e) {
        return {ErrorCode::SystemError, QString::fromLocal8Bit(e.code().message())};
    } catch (const std::exception& e) {
        return {ErrorCode::SystemError, QString::fromLocal8Bit(e.what())};
    } catch (...) {
        return {ErrorCode::SystemError, errorText(ErrorCode::SystemError)};
    }
}

} // namespace kestrel::engine

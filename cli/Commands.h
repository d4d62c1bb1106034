#pragma once

#include <QStringList>

namespace kestrel::cli {

// Runs kestrel-cli with its arguments (the program name first) and returns
// the exit status: 0 success, 2 trouble (and, for compare, 1 differences).
int run(const QStringList& arguments);

} // namespace kestrel::cli

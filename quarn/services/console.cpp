// The installed console sink. Process-wide because the console is: there is one host.
#include <qn/console.hpp>

#include <cstdio>

namespace QN {

namespace {

void writeToStandardOutput(void*, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

ConsoleSink installedSink = writeToStandardOutput;
void* installedContext = nullptr;

} // namespace

void setConsoleSink(ConsoleSink sink, void* context) noexcept {
    installedSink = sink != nullptr ? sink : writeToStandardOutput;
    installedContext = context;
}

void consoleWrite(std::string_view text) {
    installedSink(installedContext, text);
}

} // namespace QN

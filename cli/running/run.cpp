#include "cli/running/run.h"

#include <exception>

#include "tavo/service/files.h"

namespace cli {
namespace {

constexpr const char* kMark = "{serial}";

void openLog(Session& session) {
    const std::string& file = session.options.logFile;
    if (!file.empty() && !hasSerialMark(file)) session.log.open(file);
}

void replaceSerial(Session& session, const Invocation& invocation) {
    if (!session.hasDevice()) return;
    const std::string& serial = session.device().description().serial;
    for (std::string* text : invocation.texts) *text = withSerial(*text, serial);
    const std::string& logFile = session.options.logFile;
    if (hasSerialMark(logFile)) session.log.open(withSerial(logFile, serial));
}

Exit internal(Session& session, const std::string& what) {
    session.report.failure({Exit::Internal, "internal error: " + what, "please report this", {}});
    return Exit::Internal;
}

Exit caught(Session& session, const std::function<Exit()>& work) {
    try {
        return work();
    } catch (const tavo::Error& error) {
        session.progress.abandon();
        session.report.failure(error);
        return exitOf(error);
    } catch (const Failure& failure) {
        session.progress.abandon();
        session.report.failure(failure);
        return failure.exit;
    } catch (const std::exception& error) {
        session.progress.abandon();
        return internal(session, error.what());
    } catch (...) {
        session.progress.abandon();
        return internal(session, "unknown exception");
    }
}

}  // namespace

Exit guarded(Session& session, const std::function<Exit()>& work) {
    Exit exit = caught(session, work);
    exit = caught(session, [&] { return session.writePage(exit); });
    if (const std::string fault = session.log.fault(); !fault.empty()) {
        session.report.warning(fault, "free some space, or choose another file for --log");
    }
    return exit;
}

Exit runCommand(Session& session, const Invocation& invocation) {
    const auto trace = session.trace();
    openLog(session);
    session.prepare(questionOf(invocation));
    replaceSerial(session, invocation);
    invocation.run(session);
    session.progress.end();
    return session.exit;
}

std::string questionOf(const Invocation& invocation) {
    if (invocation.asks) return invocation.asks();
    return invocation.command->asks == nullptr ? "" : invocation.command->asks;
}

bool hasSerialMark(const std::string& text) {
    return text.find(kMark) != std::string::npos;
}

std::string withSerial(std::string text, const std::string& serial) {
    const std::string mark = kMark;
    const std::string name = tavo::safeName(serial);
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + name.size())) {
        text.replace(at, mark.size(), name);
    }
    return text;
}

}  // namespace cli

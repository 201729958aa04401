// The host API for its front end and tests: the log, scripted answers, installation
// locations and terminal drawing.
#include "HostTesting.h"

namespace orvhost {

const std::vector<LogEntry>& LogEntries() { return TheHost().log; }

void ClearLog() { TheHost().log.clear(); }

void RecordLog(bool on) {
    TheHost().recordLog = on;
    if (!on) {
        TheHost().log.clear();
        TheHost().log.shrink_to_fit();
    }
}

std::vector<std::wstring> LogTexts(int severity) {
    std::vector<std::wstring> out;
    for (const LogEntry& e : TheHost().log)
        if (severity == 0 || e.severity == severity) out.push_back(e.text);
    return out;
}

void QueueAnswer(const CValue& answer) { TheHost().answers.push_back(answer); }

void ClearAnswers() {
    TheHost().answers.clear();
    TheHost().questions.clear();
    TheHost().messageBoxes.clear();
}

std::size_t PendingAnswers() { return TheHost().answers.size(); }

const std::vector<std::wstring>& Questions() { return TheHost().questions; }

const std::vector<MessageBoxRecord>& MessageBoxes() { return TheHost().messageBoxes; }

void SetInstallationPath(int kind, const std::wstring& path) { TheHost().installPaths[kind] = path; }

void SetDrawProgress(bool on) { TheHost().drawProgress = on; }

}  // namespace orvhost

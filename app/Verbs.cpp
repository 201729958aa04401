#include "Verbs.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>

#include "CharacterFiles.h"
#include "CliValues.h"
#include "HostTesting.h"

namespace trovo {

namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kBadUsage = 2;

VerbResult Say(int code, const std::string& message) {
    std::cerr << "trovo: " << message << "\n";
    if (code == kBadUsage) std::cerr << "Try \"trovo --help\".\n";
    return VerbResult{code, false};
}

void PrintValue(const ORV::CValue& v) {
    if (v.IsEmpty()) return;
    if (v.GetType() == ORV::ovArray) {
        const ORV::CValueArray& a = v;
        for (long i = 0; i < a.GetCount(); ++i) PrintValue(a[i]);
        return;
    }
    std::cout << Narrow(v.GetAsText().GetWideString()) << "\n";
}

std::string Number(double v) {
    char buf[40];
    // Nine significant digits, and no "-0" for values that round to nothing.
    std::snprintf(buf, sizeof(buf), "%.9g", v);
    if (std::strcmp(buf, "-0") == 0) return "0";
    return buf;
}

orvhost::Object3D* ObjectNamed(const std::string& name) {
    const ORV::CRef ref = FindObject(Widen(name));
    return orvhost::TheStore().As<orvhost::Object3D>(ref, ORV::ov3DObjectID);
}

std::string Quoted(const std::string& s) { return "\"" + s + "\""; }

}  // namespace

// --- run ------------------------------------------------------------------------------------

bool SplitCommandLine(const std::string& line, std::vector<std::string>& words, std::string& error) {
    words.clear();
    std::string word;
    bool inWord = false, quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
                word += line[++i];
            } else if (c == '"') {
                quoted = false;
            } else {
                word += c;
            }
            continue;
        }
        if (c == '#') break;
        if (c == '"') {
            quoted = inWord = true;
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
            continue;
        }
        word += c;
        inWord = true;
    }
    if (quoted) {
        error = "a quote is not closed";
        return false;
    }
    if (inWord) words.push_back(word);
    return true;
}

VerbResult RunFile(const CliOptions& opt) {
    std::ifstream in(opt.file);
    if (!in)
        return Say(kFailed, "cannot read the command file " + Quoted(opt.file) + ": " + std::strerror(errno));

    // Every line is read and its command looked up before the first one runs: a typo stops
    // the run before it has changed anything.
    struct Line {
        int number;
        std::string text;
        orvhost::CommandInfo info;
        std::vector<std::string> arguments;
    };
    std::vector<Line> lines;
    std::string text;
    for (int number = 1; std::getline(in, text); ++number) {
        std::vector<std::string> words;
        std::string error;
        const std::string where = opt.file + ":" + std::to_string(number);
        if (!SplitCommandLine(text, words, error)) return Say(kBadUsage, where + ": " + error);
        if (words.empty()) continue;
        Line l;
        l.number = number;
        l.text = text;
        while (!l.text.empty() && (l.text.back() == '\r' || l.text.back() == ' ' || l.text.back() == '\t'))
            l.text.pop_back();
        if (!orvhost::FindCommand(Widen(words[0]), l.info))
            return Say(kBadUsage,
                       where + ": unknown command " + Quoted(words[0]) + "; \"trovo commands\" lists them");
        l.arguments.assign(words.begin() + 1, words.end());
        lines.push_back(std::move(l));
    }

    for (const std::string& a : opt.answers)
        orvhost::QueueAnswer(a.empty() ? ORV::CValue() : ValueFromText(a));
    bool anyFailed = false;
    for (const Line& l : lines) {
        const std::string where = opt.file + ":" + std::to_string(l.number);
        ORV::CValueArray args;
        std::string error;
        // Arguments are built when their line comes: a model named there may be made by an
        // earlier line.
        if (!BuildArguments(l.info.name, l.info.arguments, l.arguments, args, error))
            return Say(kBadUsage, where + ": " + error);
        // The front end keeps no log record; a strict run keeps one per command, to see warnings.
        if (opt.strict) {
            orvhost::RecordLog(true);
            orvhost::ClearLog();
        }
        ORV::CValue result;
        const ORV::CStatus status = orvhost::RunCommand(l.info.name, args, result);
        PrintValue(result);
        std::cout.flush();
        const bool failed = status != ORV::CStatus::OK;
        anyFailed = anyFailed || failed;
        if (!opt.strict) continue;
        bool warned = false;
        for (const orvhost::LogEntry& entry : orvhost::LogEntries()) warned = warned || entry.severity == ORV::ovWarning;
        orvhost::ClearLog();
        orvhost::RecordLog(false);
        const bool returnedFalse = result.GetType() == ORV::ovBool && !static_cast<bool>(result);
        std::string reason;
        if (failed) {
            reason = "the command failed";
        } else if (returnedFalse || warned) {
            reason = std::string("the command ") + (returnedFalse ? "returned false" : "") +
                     (returnedFalse && warned ? " and " : "") + (warned ? "logged a warning" : "");
        }
        if (!reason.empty()) return Say(kFailed, "stopped at " + where + " (" + l.text + "): " + reason);
    }
    if (orvhost::PendingAnswers() > 0)
        std::cerr << "trovo: " << orvhost::PendingAnswers() << " answer"
                  << (orvhost::PendingAnswers() == 1 ? " was" : "s were") << " not asked for.\n";
    return VerbResult{anyFailed ? kFailed : kOk, true};
}

// --- import and export ----------------------------------------------------------------------

VerbResult ImportVerb(const CliOptions& opt) {
    orvhost::CharacterImportOptions io;
    io.name = Widen(opt.name);
    io.animation = !opt.noAnimation;
    io.animationName = Widen(opt.animation);
    std::wstring error;
    orvhost::Object3D* model = orvhost::ImportCharacter(opt.file, io, error);
    if (!model) return Say(kFailed, "cannot import " + Quoted(opt.file) + ": " + Narrow(error));
    std::cout << Narrow(model->name) << "\n";
    return VerbResult{kOk, true};
}

VerbResult ExportVerb(const CliOptions& opt) {
    orvhost::Object3D* model = ObjectNamed(opt.model);
    if (!model || !model->IsModel()) return Say(kBadUsage, Quoted(opt.model) + " is no model of the scene");
    orvhost::CharacterExportOptions eo;
    eo.range = opt.hasStart;
    eo.start = opt.start;
    eo.end = opt.end;
    std::wstring error;
    if (!orvhost::ExportCharacter(opt.file, model, eo, error))
        return Say(kFailed, "cannot export " + Quoted(opt.file) + ": " + Narrow(error));
    return VerbResult{kOk, true};
}

// --- eval and hierarchy ---------------------------------------------------------------------

VerbResult EvalVerb(const CliOptions& opt) {
    std::vector<orvhost::Object3D*> objects;
    for (const std::string& name : opt.objects) {
        orvhost::Object3D* o = ObjectNamed(name);
        if (!o) return Say(kBadUsage, Quoted(name) + " is neither a model of the scene nor a scene path");
        objects.push_back(o);
    }
    if (!opt.model.empty()) {
        orvhost::Object3D* model = ObjectNamed(opt.model);
        if (!model || !model->IsModel())
            return Say(kBadUsage, Quoted(opt.model) + " is no model of the scene");
        objects.push_back(model);
        orvhost::WalkObjects(model, true, [&](orvhost::Object3D* o) {
            if (o->type != L"crvlist") objects.push_back(o);
        });
    }
    std::vector<double> frames = opt.frames;
    if (opt.hasStart) {
        const double step = opt.hasStep ? opt.step : 1.0;
        for (long i = 0;; ++i) {
            const double f = opt.start + static_cast<double>(i) * step;
            if (f > opt.end + 1e-9) break;
            frames.push_back(f);
        }
    }
    if (frames.empty()) frames.push_back(orvhost::CurrentFrame());
    std::vector<std::string> names;
    for (orvhost::Object3D* o : objects) names.push_back(Narrow(orvhost::FullName(o)));
    for (double f : frames) {
        for (std::size_t i = 0; i < objects.size(); ++i) {
            const ORV::MATH::CTransformation t = orvhost::GlobalTransform(objects[i], f);
            const ORV::MATH::CVector3& p = t.GetTranslation();
            ORV::MATH::CRotation r = t.GetRotation();
            r.PutRotationOrder(ORV::MATH::ovXYZ);
            const ORV::MATH::CVector3 a = r.GetXYZAngles();
            const ORV::MATH::CQuaternion q = t.GetRotationQuaternion();
            const ORV::MATH::CVector3& s = t.GetScaling();
            const double deg = 57.29577951308232;
            std::cout << names[i] << " " << Number(f);
            for (double v : {p.x, p.y, p.z, a.x * deg, a.y * deg, a.z * deg, q.GetW(), q.GetX(), q.GetY(),
                             q.GetZ(), s.x, s.y, s.z})
                std::cout << " " << Number(v);
            std::cout << "\n";
        }
    }
    return VerbResult{kOk, true};
}

VerbResult HierarchyVerb(const CliOptions& opt) {
    orvhost::Object3D* model = ObjectNamed(opt.model);
    if (!model || !model->IsModel()) return Say(kBadUsage, Quoted(opt.model) + " is no model of the scene");
    std::cout << Narrow(model->name) << " (" << Narrow(model->type) << ")\n";
    std::function<void(orvhost::Object3D*, int)> walk = [&](orvhost::Object3D* o, int depth) {
        for (orvhost::Object3D* c : o->children) {
            std::cout << std::string(static_cast<std::size_t>(depth) * 2, ' ') << Narrow(c->name) << " ("
                      << Narrow(c->type) << ")\n";
            walk(c, depth + 1);
        }
    };
    walk(model, 1);
    return VerbResult{kOk, true};
}

}  // namespace trovo

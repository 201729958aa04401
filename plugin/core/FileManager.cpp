#include "core/FileManager.h"

#include <glob.h>
#include <unistd.h>

#include <cwchar>
#include <cwctype>

#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "shell/Util.h"

namespace ZUK {

const wchar_t* const FileManager::ADDON_PATH = L"/Addons/Trovo/Data/";
const wchar_t* const FileManager::TYPE_PATHS[NUM_TYPE_PATHS] = {L"Structures/", L"Structures/",
                                                                L"Structures/Mocap/", L"TagTemplates/"};
const wchar_t* const FileManager::TYPE_SUFFIXES[NUM_TYPES] = {L".structure", L".base",     L".structure",
                                                              L".tagt",      L".retarget", L".frpre"};
const wchar_t* const FileManager::PREFERENCES_FILE = L"retargetpref.cfg";
const wchar_t* const FileManager::PREFERENCES_VERSION = L"Version1.1";

ORV::CString FileManager::roots[NUM_SCOPES];
bool FileManager::rootsFilled = false;

namespace {

// Host location kinds of the three scopes: user, shared, factory.
const int SCOPE_LOCATIONS[FileManager::NUM_SCOPES] = {ORV::ovUserPath, ORV::ovSharedPath, ORV::ovFactoryPath};

bool hasFolder(FileManager::FileType type) { return type >= 0 && type < FileManager::NUM_TYPE_PATHS; }

bool validScope(FileManager::Scope scope) { return scope >= 0 && scope < FileManager::NUM_SCOPES; }

ORV::CString userLocation() { return ORV::Application().GetInstallationPath(ORV::ovUserPath); }

// Index of the last "/" or "\\", or -1.
long lastSeparator(const ORV::CString& path) {
    for (long i = static_cast<long>(path.Length()) - 1; i >= 0; --i) {
        if (path[i] == L'/' || path[i] == L'\\') return i;
    }
    return -1;
}

ORV::CString substring(const ORV::CString& text, long first, long last) {
    ORV::CString out;
    for (long i = first; i < last; ++i) out += text[i];
    return out;
}

// The preferences file: five folders, then "StructureFit" and "StructureTag".
const wchar_t* const FOLDER_KEYS[5] = {L"C3DDir", L"MapFileDir", L"BVHDir", L"AMCDir", L"TrovoDir"};
const wchar_t* const INT_KEYS[2] = {L"StructureFit", L"StructureTag"};

struct Preferences {
    ORV::CString folders[5];
    int values[2] = {0, 0};
};

ORV::CString preferencesPath() { return userLocation() + L"/" + FileManager::PREFERENCES_FILE; }

// Starts from the user location for every folder and 0 for both ints; takes the file's values
// when it exists and has the right version. Folders are read as tokens.
Preferences readPreferenceTokens() {
    Preferences prefs;
    for (auto& folder : prefs.folders) folder = userLocation();
    InputStream in(preferencesPath());
    if (!in.buffer) return prefs;
    ORV::CString version;
    in >> version;
    if (version != FileManager::PREFERENCES_VERSION) return prefs;
    for (auto& folder : prefs.folders) in >> folder;
    in >> prefs.values[0] >> prefs.values[1];
    return prefs;
}

bool writePreferences(const Preferences& prefs) {
    if (userLocation().IsEmpty()) return false;
    OutputStream out(preferencesPath());
    if (!out.file) return false;
    out << ORV::CString(FileManager::PREFERENCES_VERSION) << '\n';
    for (const auto& folder : prefs.folders) out << folder << '\n';
    out << prefs.values[0] << '\n' << prefs.values[1] << '\n';
    return true;
}

}  // namespace

FileManager::FileManager() {
    if (rootsFilled) return;
    ORV::Application app;
    for (int s = 0; s < NUM_SCOPES; ++s) {
        roots[s] = app.GetInstallationPath(SCOPE_LOCATIONS[s]);
        if (!roots[s].IsEmpty()) roots[s] += ADDON_PATH;
    }
    rootsFilled = true;
}

// An empty root is tried like any other (its folder is then relative to the working
// directory); only the listing of files passes such scopes over.
bool FileManager::getStorePath(FileType type, ORV::CString& path, Scope scope) {
    if (!validScope(scope) || !hasFolder(type)) return false;
    for (int s = scope; s < NUM_SCOPES; ++s) {
        path = roots[s] + TYPE_PATHS[type];
        if (dirIsReadable(path)) return true;
    }
    return false;
}

bool FileManager::getLoadPath(FileType type, const ORV::CString& name, ORV::CString& path, Scope scope) {
    if (!validScope(scope) || !hasFolder(type)) return false;
    for (int s = scope; s < NUM_SCOPES; ++s) {
        const ORV::CString candidate = roots[s] + TYPE_PATHS[type] + name + TYPE_SUFFIXES[type];
        if (fileIsReadable(candidate)) {
            path = candidate;
            return true;
        }
    }
    return false;
}

bool FileManager::getFilesOfType(ORV::CStringArray& files, FileType type, Scope scope) {
    files.Clear();
    if (!validScope(scope) || !hasFolder(type)) return false;
    for (int s = scope; s < NUM_SCOPES; ++s) {
        if (roots[s].IsEmpty()) continue;
        const ORV::CString pattern = roots[s] + TYPE_PATHS[type] + L"*" + TYPE_SUFFIXES[type];
        glob_t matches{};
        if (glob(pattern.GetAsciiString(), 0, nullptr, &matches) == 0) {
            for (size_t i = 0; i < matches.gl_pathc; ++i) {
                // The part behind the last "/": glob answers with the pattern's own separators.
                const ORV::CString match(matches.gl_pathv[i]);
                long slash = static_cast<long>(match.Length()) - 1;
                while (slash >= 0 && match[slash] != L'/') --slash;
                files.Add(substring(match, slash + 1, static_cast<long>(match.Length())));
            }
        }
        globfree(&matches);
    }
    return true;
}

bool FileManager::userSelectFileOfType(FileType type, const ORV::CString& title,
                                       const ORV::CString& defaultValue, ORV::CString& file) {
    // 1. The choices: label and value are both the bare file name.
    ORV::CStringArray files;
    getFilesOfType(files, type, USER_SCOPE);
    ORV::CValueArray items;
    for (long i = 0; i < static_cast<long>(files.GetCount()); ++i) {
        const ORV::CString name = fileNameFromPath(files[i]);
        items.Add(ORV::CValue(name));
        items.Add(ORV::CValue(name));
    }

    // 2. A temporary page on the scene root with one string parameter.
    ORV::Application app;
    ORV::Model root = app.GetActiveSceneRoot();
    ORV::CustomProperty page(root.AddProperty(L"Custom_parameter_list", false, title).GetRef());
    if (!page.IsValid()) return false;
    ORV::Parameter parameter;
    page.AddParameter(L"File", ORV::ovString, ORV::ovPersistable, L"", L"", ORV::CValue(defaultValue),
                      parameter);

    // 3. Its layout: one combo box.
    ORV::PPGLayout layout = page.GetPPGLayout();
    layout.Clear();
    layout.AddEnumControl(L"File", items, L"File", L"Combo");  // ovControlCombo

    // 4. Shown modally; 5. read back on OK, removed in every case.
    const bool accepted = Util::inspectObj(ORV::CValue(page.GetRef()), L"", title, ORV::CValue(4), true);
    if (accepted) file = ORV::CString(page.GetParameterValue(L"File"));
    Util::deleteObj(page.GetFullName());
    return accepted;
}

ORV::CString FileManager::getStructurePath(const ORV::CString&) { return userLocation(); }

bool FileManager::dirIsReadable(const ORV::CString& path) {
    return access(path.GetAsciiString(), R_OK | X_OK) == 0;
}

bool FileManager::fileIsReadable(const ORV::CString& path) {
    return access(path.GetAsciiString(), R_OK) == 0;
}

ORV::CString FileManager::extractSuffix(const ORV::CString& path) {
    const long n = static_cast<long>(path.Length());
    long dot = -1;
    for (long i = n - 1; i >= 0; --i) {
        if (path[i] == L'.') {
            dot = i;
            break;
        }
    }
    ORV::CString suffix;
    for (long i = dot + 1; i < n; ++i) suffix += static_cast<wchar_t>(std::towupper(path[i]));
    return suffix;
}

ORV::CString FileManager::extractPath(const ORV::CString& path) {
    return substring(path, 0, lastSeparator(path) + 1);
}

ORV::CString FileManager::fileNameFromPath(const ORV::CString& path, bool) {
    const long n = static_cast<long>(path.Length());
    ORV::CString name;
    for (long i = lastSeparator(path) + 1; i < n && path[i] != L'.'; ++i) name += path[i];
    return name;
}

ORV::CString FileManager::extractBaseName(ORV::CString name) {
    const wchar_t* text = name.GetWideString();
    const wchar_t* hit = std::wcsstr(text, L".structure");
    if (!hit) return name;
    return substring(name, 0, static_cast<long>(hit - text));
}

bool FileManager::saveFilePath(const ORV::CString& key, const ORV::CString& value) {
    Preferences prefs = readPreferenceTokens();
    for (int i = 0; i < 5; ++i) {
        if (key == FOLDER_KEYS[i]) prefs.folders[i] = value;
    }
    return writePreferences(prefs);
}

ORV::CString FileManager::getFilePath(const ORV::CString& key) {
    const ORV::CString user = userLocation();
    InputStream in(preferencesPath());
    if (!in.buffer) return user;
    ORV::CString line;
    in.readLine(line);
    if (line != PREFERENCES_VERSION) return user;
    for (int i = 0; i < 5; ++i) {
        in.readLine(line);
        if (key == FOLDER_KEYS[i]) return line;
    }
    return user;
}

bool FileManager::saveStructurePath(const ORV::CString&, const ORV::CString&, const ORV::CString& key,
                                    int value) {
    Preferences prefs = readPreferenceTokens();
    for (int i = 0; i < 2; ++i) {
        if (key == INT_KEYS[i]) prefs.values[i] = value;
    }
    return writePreferences(prefs);
}

}  // namespace ZUK

// Where the plug-in's data files live. Each of the host's three installation locations has
// the add-on's data tree below it; a file is looked for from a given scope outward, so that a
// user's own copy wins over the shared one, and that over the factory's. Also a few path
// string helpers and the older preferences file of last used folders.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class FileManager {
public:
    enum Scope { USER_SCOPE = 0, SHARED_SCOPE = 1, FACTORY_SCOPE = 2 };
    enum FileType {
        STRUCTURE_FILE = 0,
        BASE_FILE = 1,
        MOCAP_STRUCTURE_FILE = 2,
        TAG_TEMPLATE_FILE = 3,
        RETARGET_FILE = 4,  // suffix only: no folder
        PRESET_FILE = 5     // suffix only: no folder
    };

    static const wchar_t* const ADDON_PATH;
    static const int NUM_SCOPES = 3;
    static const int NUM_TYPE_PATHS = 4;
    static const int NUM_TYPES = 6;
    static const wchar_t* const TYPE_PATHS[NUM_TYPE_PATHS];
    static const wchar_t* const TYPE_SUFFIXES[NUM_TYPES];
    static const wchar_t* const PREFERENCES_FILE;     // "retargetpref.cfg"
    static const wchar_t* const PREFERENCES_VERSION;  // "Version1.1"

    // Fills the scope roots the first time; later constructions do nothing.
    FileManager();

    // The first folder of `type`, from `scope` outward, that can be read and searched. On
    // failure `path` holds the last folder tried.
    static bool getStorePath(FileType type, ORV::CString& path, Scope scope);
    // The first readable file `name` of `type`, from `scope` outward; `path` is set only on
    // success.
    static bool getLoadPath(FileType type, const ORV::CString& name, ORV::CString& path, Scope scope);
    // The file names (no folder) of `type` in every scope from `scope` outward; a name found
    // in two scopes comes twice. No files is not a failure.
    static bool getFilesOfType(ORV::CStringArray& files, FileType type, Scope scope);
    // Asks the user for one file of `type` on a modal page titled `title`. False on cancel.
    static bool userSelectFileOfType(FileType type, const ORV::CString& title,
                                     const ORV::CString& defaultValue, ORV::CString& file);
    // The host's user location; the argument is not looked at.
    static ORV::CString getStructurePath(const ORV::CString& unused);

    static bool dirIsReadable(const ORV::CString& path);
    static bool fileIsReadable(const ORV::CString& path);
    // The text behind the last ".", upper case. A path with no "." at all comes back whole in
    // upper case; callers compare against known suffixes, so that is harmless and kept.
    static ORV::CString extractSuffix(const ORV::CString& path);
    // Up to and including the last "/" or "\\"; empty when there is neither.
    static ORV::CString extractPath(const ORV::CString& path);
    // The name behind the last separator, up to the first "." in it. `unused` has no effect.
    static ORV::CString fileNameFromPath(const ORV::CString& path, bool unused = false);
    // The text up to the first ".structure", or the text unchanged.
    static ORV::CString extractBaseName(ORV::CString name);

    // The older preferences file "retargetpref.cfg" in the user location. Nothing in the
    // panels calls these any more; the settings document took their place.
    static bool saveFilePath(const ORV::CString& key, const ORV::CString& value);
    static ORV::CString getFilePath(const ORV::CString& key);
    static bool saveStructurePath(const ORV::CString& unusedA, const ORV::CString& unusedB,
                                  const ORV::CString& key, int value);

    // The scope roots (installation location + ADDON_PATH), empty where the host has none.
    static ORV::CString roots[NUM_SCOPES];
    static bool rootsFilled;
};

}  // namespace ZUK

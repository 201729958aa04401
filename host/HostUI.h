// The host's side of plug-in callbacks, dialogs and property pages: the records behind the
// Command, Menu, PPGLayout and View handles, and the functions through which the rest of the
// host (scene files, operators, commands) and tests fire callbacks and page events by name.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "HostTesting.h"

namespace orvhost {

// --- Records of what plug-ins registered -----------------------------------------------------

// A plug-in command: its declaration as its _Init made it.
struct CommandItem : Item {
    CommandItem(std::wstring name, std::wstring scriptName);
    std::wstring scriptName;
    std::vector<std::wstring> argNames;
    std::vector<CValue> argDefaults;
    bool returnValue = false;
    int flags = 0;
    std::string pluginPath;
};

// A menu a plug-in registered; its items are owned MenuItemRecords, in the order added.
struct MenuRecord : Item {
    explicit MenuRecord(std::wstring name) : Item(ORV::ovMenuID, std::move(name)) {}
    int anchor = 0;
};

struct MenuItemRecord : Item {
    MenuItemRecord(std::wstring label, std::wstring callback)
        : Item(ORV::ovMenuItemID, label), label(std::move(label)), callback(std::move(callback)) {}
    std::wstring label;
    std::wstring callback;
};

// The plug-in command reached by a script name (or, failing that, by its item name).
CommandItem* FindPluginCommand(const std::wstring& name);
// All plug-in commands, in registration order.
std::vector<CommandItem*> PluginCommands();
// Runs a plug-in command: fills "Arguments" (missing ones take the declared, empty defaults),
// calls <name>_Execute and gives back "ReturnValue" when the command enabled it.
ORV::CStatus ExecutePluginCommand(CommandItem* command, const CValueArray& args, CValue& result);
// All menus of loaded plug-ins, in registration order.
std::vector<MenuRecord*> PluginMenus();
// Calls the callback of the menu item labelled `label` in the menu `menuName`.
ORV::CStatus ClickMenuItem(const std::wstring& menuName, const std::wstring& label);

// --- Callbacks by name -----------------------------------------------------------------------

// The name under which a callback of an item is exported: the item's name without its spaces,
// then the suffix ("Rig to Rig", "_Init" gives "RigtoRig_Init").
std::wstring CallbackName(const std::wstring& itemName, const std::wstring& suffix);
// The lasting user-data slot of an item: where Context::GetUserData and PutUserData of every
// callback about that item read and write (a panel's pointer kept between _PPGEvent and _Term).
// Null when the reference does not resolve.
CValue* UserDataSlot(const CRef& source);
// Runs `name` with a fresh context about `source` (time the current frame; user data in the
// slot of `userDataOf`, or of the source when that is not given). `attributes` are put on the
// context before the call and read back after it. MemberNotFound when no loaded plug-in
// exports the callback.
ORV::CStatus RunCallback(const std::wstring& name, const CRef& source,
                         std::map<std::wstring, CValue>* attributes = nullptr,
                         const CRef& userDataOf = CRef());
// True when a loaded plug-in registered a property type of that name.
bool IsPluginPropertyType(const std::wstring& type);

// --- Questions and scripted answers ----------------------------------------------------------

// Records a question ("<kind>: <text>") and takes the next scripted answer. `answered` is false
// when the queue was empty (the caller then uses its default).
CValue AskQuestion(const std::wstring& kind, const std::wstring& text, bool& answered);
// Told of every question with the answer the host took, as text (the front end prints them).
std::function<void(const std::wstring& question, const std::wstring& answer)>& QuestionSink();
// Records something shown to the user that needs no answer (a file opened for reading).
void ShowToUser(const std::wstring& kind, const std::wstring& text);

// --- Property pages --------------------------------------------------------------------------

// The mode of "InspectObj" that waits for the user's OK or Cancel.
constexpr long kInspectModal = 4;

struct PPGEventResult {
    ORV::CStatus status = ORV::CStatus::OK;
    bool called = false;   // a plug-in exported <Type>_PPGEvent for the property
    bool refresh = false;  // the callback set the context attribute "Refresh"
};
// Calls <Type>_PPGEvent of a plug-in property with the event id (ovOnInit, ovOnClosed,
// ovParameterChange, ovButtonClicked). The context's source is `source` when given (the
// changed parameter), else the property; a button's name goes in the attribute "Button".
PPGEventResult FirePPGEvent(const CRef& property, int eventId, const CRef& source = CRef(),
                            const std::wstring& button = L"");
// A user's click on a page button.
PPGEventResult PressPPGButton(const CRef& property, const std::wstring& button);
// A user's edit of a page parameter: the value is stored, then the change event fires.
PPGEventResult ChangePPGParameter(const CRef& parameter, const CValue& value);
// Opens the page of an item in a "Property Panel" view (made or recycled). Opening a plug-in
// property runs <Type>_DefineLayout once per layout, then the OnInit event.
// In the modal mode the next scripted answer decides: true, 1, "ok" or "yes" is OK; false,
// empty, "cancel" or "no" cancels; text "name=value;name=value" sets those parameters of the
// item and is OK. An empty queue answers OK. The modal page then closes (OnClosed).
// False when the item does not resolve.
bool InspectItem(const CRef& item, const std::wstring& title, long mode, bool& cancelled);

// --- Views -----------------------------------------------------------------------------------

// The desktop's one layout, made on demand (a new scene drops it with the rest of the UI).
Item* ActiveLayoutItem();
// The views of the active layout whose "targetcontent" is exactly `content`.
std::vector<Item*> ViewsShowing(const std::wstring& content);

// What "FrameAll" framed last: how many times it ran, and the objects of its last run.
struct FrameRecord {
    long count = 0;
    std::vector<CRef> objects;
};
FrameRecord& LastFrame();

}  // namespace orvhost

// The plug-in loader: dlopen, ORVLoadPlugin, the records of what each plug-in registered, and
// callbacks found by name with dlsym. Also the handles a plug-in sees in its callbacks:
// PluginRegistrar, Context, Command, ArgumentArray, Menu, MenuItem.
#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <cwctype>

#include "HostUI.h"

using namespace ORV;

namespace orvhost {

namespace {

// Loaded plug-ins and their records outlive every scene. Never destroyed: the slot table may
// already be gone when static destructors run, and the libraries stay mapped until exit.
struct PluginHost {
    std::vector<PluginRecord> records;
    std::unique_ptr<Item> root = std::make_unique<Item>(ovObjectID, L"Plugins");
    std::vector<CommandItem*> commands;
    std::vector<MenuRecord*> menus;
    std::map<std::uint64_t, CValue> userData;
    bool termHookAdded = false;
};

PluginHost& TheHostPlugins() {
    static PluginHost* host = new PluginHost;
    return *host;
}

// The registrar handed to ORVLoadPlugin: collects into a record that is kept only when the
// entry point succeeds.
struct RegistrarItem : Item {
    RegistrarItem() : Item(ovObjectID, L"PluginRegistrar") {}
    PluginRecord record;
};

RegistrarItem* GetRegistrar(const CRef& ref) { return dynamic_cast<RegistrarItem*>(TheStore().Resolve(ref)); }
ContextItem* GetContext(const CRef& ref) { return dynamic_cast<ContextItem*>(TheStore().Resolve(ref)); }
CommandItem* GetCommand(const CRef& ref) { return dynamic_cast<CommandItem*>(TheStore().Resolve(ref)); }
MenuRecord* GetMenu(const CRef& ref) { return dynamic_cast<MenuRecord*>(TheStore().Resolve(ref)); }
MenuItemRecord* GetMenuItem(const CRef& ref) {
    return dynamic_cast<MenuItemRecord*>(TheStore().Resolve(ref));
}

CStatus Fail() { return CStatus(CStatus::Fail); }

// Callback names are plain C identifiers; anything else can't be exported and finds nothing.
bool NarrowName(const std::wstring& name, std::string& out) {
    out.clear();
    if (name.empty()) return false;
    for (wchar_t c : name) {
        if (c <= 32 || c >= 127) return false;
        out += static_cast<char>(c);
    }
    return true;
}

std::wstring Widen(const std::string& s) {
    std::wstring w;
    for (unsigned char c : s) w += static_cast<wchar_t>(c);
    return w;
}

std::string CanonicalPath(const std::string& path) {
    char buf[PATH_MAX];
    return realpath(path.c_str(), buf) ? std::string(buf) : path;
}

void PruneUserData() {
    auto& slots = TheHostPlugins().userData;
    for (auto it = slots.begin(); it != slots.end();) {
        if (TheStore().Resolve(it->first))
            ++it;
        else
            it = slots.erase(it);
    }
}

}  // namespace

// --- Callbacks by name ------------------------------------------------------------------------

std::wstring CallbackName(const std::wstring& itemName, const std::wstring& suffix) {
    std::wstring out;
    for (wchar_t c : itemName)
        if (c != L' ') out += c;
    return out + suffix;
}

const std::vector<PluginRecord>& Plugins() { return TheHostPlugins().records; }

ORVCallbackFn FindCallback(const std::wstring& name) {
    std::string narrow;
    if (!NarrowName(name, narrow)) return nullptr;
    for (const PluginRecord& pr : Plugins()) {
        if (!pr.handle) continue;
        if (void* sym = dlsym(pr.handle, narrow.c_str())) return reinterpret_cast<ORVCallbackFn>(sym);
    }
    return nullptr;
}

CValue* UserDataSlot(const CRef& source) {
    if (!TheStore().Resolve(source)) return nullptr;
    auto& slots = TheHostPlugins().userData;
    if (slots.find(source.GetId()) == slots.end() && slots.size() >= 64 && slots.size() % 64 == 0)
        PruneUserData();
    return &slots[source.GetId()];
}

CStatus RunCallback(const std::wstring& name, const CRef& source, std::map<std::wstring, CValue>* attributes,
                    const CRef& userDataOf) {
    ORVCallbackFn fn = FindCallback(name);
    if (!fn) return CStatus(CStatus::MemberNotFound);
    ContextItem ctx;
    ctx.source = source;
    if (CValue* slot = UserDataSlot(userDataOf.GetId() ? userDataOf : source)) ctx.userData = slot;
    ctx.time = CurrentFrame();
    if (attributes)
        for (const auto& a : *attributes) ctx.attributes[a.first] = a.second;
    CRef ref = ctx.Ref();
    const CStatus st = fn(ref);
    if (attributes) *attributes = ctx.attributes;
    return st;
}

bool IsPluginPropertyType(const std::wstring& type) {
    for (const PluginRecord& pr : Plugins())
        for (const RegisteredItem& ri : pr.items)
            if (ri.kind == L"Property" && ri.name == type) return true;
    return false;
}

void FireSceneEvent(const std::wstring& callbackName) {
    std::string narrow;
    if (!NarrowName(callbackName, narrow)) return;
    // Copy: an event may load nothing, but keep the walk safe against changes all the same.
    const std::vector<PluginRecord> records = Plugins();
    for (const PluginRecord& pr : records) {
        if (!pr.handle) continue;
        void* sym = dlsym(pr.handle, narrow.c_str());
        if (!sym) continue;
        ContextItem ctx;
        ctx.source = Root()->Ref();
        ctx.time = CurrentFrame();
        CRef ref = ctx.Ref();
        reinterpret_cast<ORVCallbackFn>(sym)(ref);
    }
}

// --- Loading ----------------------------------------------------------------------------------

namespace {

// A plug-in property that is deleted hears its <Type>_Term, with the user data its page kept.
void TermPluginProperty(Item* item) {
    auto* prop = dynamic_cast<PropertyItem*>(item);
    if (!prop || !IsPluginPropertyType(prop->type)) return;
    RunCallback(CallbackName(prop->type, L"_Term"), prop->Ref());
}

}  // namespace

bool LoadPlugin(const std::string& path, std::wstring& error) {
    error.clear();
    PluginHost& ph = TheHostPlugins();
    if (!ph.termHookAdded) {
        TheHost().deleteHooks.push_back(TermPluginProperty);
        ph.termHookAdded = true;
    }
    const std::string canonical = CanonicalPath(path);
    for (const PluginRecord& pr : ph.records)
        if (pr.path == canonical) return true;  // loading twice would register everything twice

    void* handle = dlopen(canonical.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = dlerror();
        error = L"Cannot load the plug-in \"" + Widen(path) + L"\": " + Widen(why ? why : "unknown reason");
        return false;
    }
    auto entry = reinterpret_cast<ORVLoadPluginFn>(dlsym(handle, "ORVLoadPlugin"));
    if (!entry) {
        dlclose(handle);
        error = L"The library \"" + Widen(path) + L"\" is not a plug-in: it exports no ORVLoadPlugin.";
        return false;
    }

    PluginRecord record;
    {
        RegistrarItem reg;
        reg.record.path = canonical;
        PluginRegistrar registrar(reg.Ref());
        const CStatus st = entry(registrar);
        if (st != CStatus::OK) {
            dlclose(handle);
            error = L"ORVLoadPlugin of \"" + Widen(path) + L"\" failed.";
            return false;
        }
        record = reg.record;
    }
    record.handle = handle;
    ph.records.push_back(record);

    // Commands and menus get their records now, in registration order, then their _Init.
    std::vector<CommandItem*> newCommands;
    std::vector<MenuRecord*> newMenus;
    for (const RegisteredItem& ri : record.items) {
        if (ri.kind == L"Command") {
            if (FindPluginCommand(ri.scriptName)) {
                TheHost().Log(L"The command \"" + ri.scriptName + L"\" is already registered; the one of \"" +
                                  Widen(path) + L"\" is left out.",
                              ovWarning);
                continue;
            }
            auto* cmd = ph.root->Own(std::make_unique<CommandItem>(ri.name, ri.scriptName));
            cmd->pluginPath = canonical;
            ph.commands.push_back(cmd);
            newCommands.push_back(cmd);
        } else if (ri.kind == L"Menu") {
            auto* menu = ph.root->Own(std::make_unique<MenuRecord>(ri.name));
            menu->anchor = ri.anchor;
            ph.menus.push_back(menu);
            newMenus.push_back(menu);
        }
    }
    for (CommandItem* cmd : newCommands) {
        const std::wstring init = CallbackName(cmd->name, L"_Init");
        if (RunCallback(init, cmd->Ref()) == CStatus::MemberNotFound)
            TheHost().Log(L"The plug-in command \"" + cmd->name + L"\" exports no " + init + L".", ovWarning);
    }
    for (MenuRecord* menu : newMenus) {
        const std::wstring init = CallbackName(menu->name, L"_Init");
        if (RunCallback(init, menu->Ref()) == CStatus::MemberNotFound)
            TheHost().Log(L"The plug-in menu \"" + menu->name + L"\" exports no " + init + L".", ovWarning);
    }
    return true;
}

// --- Commands and menus of plug-ins -----------------------------------------------------------

CommandItem::CommandItem(std::wstring n, std::wstring script)
    : Item(ovCommandID, std::move(n)), scriptName(std::move(script)) {}

CommandItem* FindPluginCommand(const std::wstring& name) {
    for (CommandItem* c : TheHostPlugins().commands)
        if (c->scriptName == name) return c;
    for (CommandItem* c : TheHostPlugins().commands)
        if (c->name == name) return c;
    return nullptr;
}

std::vector<CommandItem*> PluginCommands() { return TheHostPlugins().commands; }

std::vector<MenuRecord*> PluginMenus() { return TheHostPlugins().menus; }

CStatus ExecutePluginCommand(CommandItem* command, const CValueArray& args, CValue& result) {
    result = CValue();
    if (!command) return Fail();
    const long declared = static_cast<long>(command->argNames.size());
    if (args.GetCount() > declared) {
        TheHost().Log(L"The command \"" + command->scriptName + L"\" takes " + std::to_wstring(declared) +
                          (declared == 1 ? L" argument; " : L" arguments; ") +
                          std::to_wstring(args.GetCount()) + L" were given.",
                      ovError);
        return CStatus(CStatus::InvalidArgument);
    }
    // A left-out argument takes its declared default, which is empty for every plug-in command.
    CValueArray actual;
    for (long i = 0; i < declared; ++i) {
        const bool given = i < args.GetCount() && !args[i].IsEmpty();
        actual.Add(given ? args[i] : command->argDefaults[static_cast<std::size_t>(i)]);
    }
    const std::wstring execute = CallbackName(command->name, L"_Execute");
    std::map<std::wstring, CValue> attributes;
    attributes[L"Arguments"] = CValue(actual);
    attributes[L"ReturnValue"] = CValue();
    const CStatus st = RunCallback(execute, command->Ref(), &attributes);
    if (st == CStatus::MemberNotFound && !FindCallback(execute)) {
        TheHost().Log(L"The plug-in command \"" + command->scriptName + L"\" exports no " + execute + L".",
                      ovError);
        return CStatus(CStatus::NotImpl);
    }
    if (command->returnValue) result = attributes[L"ReturnValue"];
    return st;
}

CStatus ClickMenuItem(const std::wstring& menuName, const std::wstring& label) {
    for (MenuRecord* menu : PluginMenus()) {
        if (menu->name != menuName) continue;
        for (auto& o : menu->owned) {
            auto* item = dynamic_cast<MenuItemRecord*>(o.get());
            if (!item || item->label != label) continue;
            const CStatus st = RunCallback(item->callback, item->Ref());
            if (st == CStatus::MemberNotFound && !FindCallback(item->callback)) {
                TheHost().Log(L"The menu item \"" + label + L"\" calls " + item->callback +
                                  L", which no plug-in exports.",
                              ovError);
            }
            return st;
        }
    }
    TheHost().Log(L"There is no menu item \"" + label + L"\" in the menu \"" + menuName + L"\".", ovError);
    return CStatus(CStatus::MemberNotFound);
}

}  // namespace orvhost

using namespace orvhost;

// --- PluginRegistrar --------------------------------------------------------------------------

PluginRegistrar::PluginRegistrar(const CRef& ref) { m_ref = GetRegistrar(ref) ? ref : CRef(); }

CStatus PluginRegistrar::PutAuthor(const CString& author) {
    RegistrarItem* r = GetRegistrar(m_ref);
    if (!r) return Fail();
    r->record.author = author.GetWideString();
    return CStatus::OK;
}
CStatus PluginRegistrar::PutName(const CString& name) {
    RegistrarItem* r = GetRegistrar(m_ref);
    if (!r) return Fail();
    r->record.name = name.GetWideString();
    return CStatus::OK;
}
CStatus PluginRegistrar::PutVersion(long major, long minor) {
    RegistrarItem* r = GetRegistrar(m_ref);
    if (!r) return Fail();
    r->record.major = major;
    r->record.minor = minor;
    return CStatus::OK;
}
CStatus PluginRegistrar::RegisterCommand(const CString& name, const CString& scriptName) {
    RegistrarItem* r = GetRegistrar(m_ref);
    if (!r || name.IsEmpty()) return Fail();
    RegisteredItem ri;
    ri.kind = L"Command";
    ri.name = name.GetWideString();
    ri.scriptName = scriptName.IsEmpty() ? ri.name : std::wstring(scriptName.GetWideString());
    r->record.items.push_back(ri);
    return CStatus::OK;
}
CStatus PluginRegistrar::RegisterProperty(const CString& name) {
    RegistrarItem* r = GetRegistrar(m_ref);
    if (!r || name.IsEmpty()) return Fail();
    RegisteredItem ri;
    ri.kind = L"Property";
    ri.name = name.GetWideString();
    r->record.items.push_back(ri);
    return CStatus::OK;
}
CStatus PluginRegistrar::RegisterMenu(int anchor, const CString& name, bool, bool) {
    RegistrarItem* r = GetRegistrar(m_ref);
    if (!r || name.IsEmpty()) return Fail();
    RegisteredItem ri;
    ri.kind = L"Menu";
    ri.name = name.GetWideString();
    ri.anchor = anchor;
    r->record.items.push_back(ri);
    return CStatus::OK;
}
CStatus PluginRegistrar::RegisterOperator(const CString& name) {
    RegistrarItem* r = GetRegistrar(m_ref);
    if (!r || name.IsEmpty()) return Fail();
    RegisteredItem ri;
    ri.kind = L"Operator";
    ri.name = name.GetWideString();
    r->record.items.push_back(ri);
    return CStatus::OK;
}
CString PluginRegistrar::GetAuthor() const {
    RegistrarItem* r = GetRegistrar(m_ref);
    return r ? CString(r->record.author) : CString();
}
CString PluginRegistrar::GetName() const {
    RegistrarItem* r = GetRegistrar(m_ref);
    return r ? CString(r->record.name) : CString();
}
long PluginRegistrar::GetMajor() const {
    RegistrarItem* r = GetRegistrar(m_ref);
    return r ? r->record.major : 0;
}
long PluginRegistrar::GetMinor() const {
    RegistrarItem* r = GetRegistrar(m_ref);
    return r ? r->record.minor : 0;
}

// --- Context ----------------------------------------------------------------------------------

CRef Context::GetSource() const {
    ContextItem* c = GetContext(m_ref);
    return c ? c->source : CRef();
}
CValue Context::GetAttribute(const CString& name) const {
    ContextItem* c = GetContext(m_ref);
    if (!c) return CValue();
    auto it = c->attributes.find(name.GetWideString());
    return it == c->attributes.end() ? CValue() : it->second;
}
CStatus Context::PutAttribute(const CString& name, const CValue& value) {
    ContextItem* c = GetContext(m_ref);
    if (!c || name.IsEmpty()) return Fail();
    c->attributes[name.GetWideString()] = value;
    return CStatus::OK;
}
CValue Context::GetUserData() const {
    ContextItem* c = GetContext(m_ref);
    return c && c->userData ? *c->userData : CValue();
}
CStatus Context::PutUserData(const CValue& value) {
    ContextItem* c = GetContext(m_ref);
    if (!c || !c->userData) return Fail();
    *c->userData = value;
    return CStatus::OK;
}

// --- Command and ArgumentArray ----------------------------------------------------------------

CString Command::GetName() const {
    CommandItem* c = GetCommand(m_ref);
    return c ? CString(c->name) : CString();
}
CStatus Command::EnableReturnValue(bool on) {
    CommandItem* c = GetCommand(m_ref);
    if (!c) return Fail();
    c->returnValue = on;
    return CStatus::OK;
}
bool Command::IsReturnValueEnabled() const {
    CommandItem* c = GetCommand(m_ref);
    return c && c->returnValue;
}
CStatus Command::SetFlag(int flag, bool on) {
    CommandItem* c = GetCommand(m_ref);
    if (!c) return Fail();
    c->flags = on ? (c->flags | flag) : (c->flags & ~flag);
    return CStatus::OK;
}
bool Command::GetFlag(int flag) const {
    CommandItem* c = GetCommand(m_ref);
    return c && flag != 0 && (c->flags & flag) == flag;
}
ArgumentArray Command::GetArguments() const { return ArgumentArray(m_ref); }

CStatus ArgumentArray::Add(const CString& name, const CValue& defaultValue) {
    CommandItem* c = GetCommand(m_ref);
    if (!c || name.IsEmpty()) return Fail();
    c->argNames.push_back(name.GetWideString());
    c->argDefaults.push_back(defaultValue);
    return CStatus::OK;
}
long ArgumentArray::GetCount() const {
    CommandItem* c = GetCommand(m_ref);
    return c ? static_cast<long>(c->argNames.size()) : 0;
}
CString ArgumentArray::GetName(long index) const {
    CommandItem* c = GetCommand(m_ref);
    if (!c || index < 0 || index >= static_cast<long>(c->argNames.size())) return CString();
    return CString(c->argNames[static_cast<std::size_t>(index)]);
}
CValue ArgumentArray::GetDefault(long index) const {
    CommandItem* c = GetCommand(m_ref);
    if (!c || index < 0 || index >= static_cast<long>(c->argDefaults.size())) return CValue();
    return c->argDefaults[static_cast<std::size_t>(index)];
}

// --- Menu and MenuItem ------------------------------------------------------------------------

CString Menu::GetName() const {
    MenuRecord* m = GetMenu(m_ref);
    return m ? CString(m->name) : CString();
}
CStatus Menu::AddCallbackItem(const CString& label, const CString& callbackName, MenuItem& item) {
    item = MenuItem();
    MenuRecord* m = GetMenu(m_ref);
    if (!m || label.IsEmpty() || callbackName.IsEmpty()) return Fail();
    auto* rec = m->Own(std::make_unique<MenuItemRecord>(label.GetWideString(), callbackName.GetWideString()));
    item = MenuItem(rec->Ref());
    return CStatus::OK;
}
CRefArray Menu::GetItems() const {
    CRefArray out;
    if (MenuRecord* m = GetMenu(m_ref))
        for (auto& o : m->owned)
            if (o->classId == ovMenuItemID) out.Add(o->Ref());
    return out;
}

CString MenuItem::GetLabel() const {
    MenuItemRecord* m = GetMenuItem(m_ref);
    return m ? CString(m->label) : CString();
}
CString MenuItem::GetCallback() const {
    MenuItemRecord* m = GetMenuItem(m_ref);
    return m ? CString(m->callback) : CString();
}

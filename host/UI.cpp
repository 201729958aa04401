// The user interface of a host without a screen. Dialogs (message boxes, pickers, the file
// browser, modal pages) take their answers from the scripted-answer queue and record every
// question; property pages and desktop views are records that tests read back; the progress
// bar draws one line on stderr when the front end asks for it.
#include <cstdio>
#include <cwctype>
#include <set>

#include "HostUI.h"

using namespace ORV;

namespace orvhost {

namespace {

CStatus Fail() { return CStatus(CStatus::Fail); }

std::wstring Lower(std::wstring s) {
    for (wchar_t& c : s) c = static_cast<wchar_t>(std::towlower(c));
    return s;
}

std::wstring Trim(const std::wstring& s) {
    std::size_t a = 0, b = s.size();
    while (a < b && std::iswspace(s[a])) ++a;
    while (b > a && std::iswspace(s[b - 1])) --b;
    return s.substr(a, b - a);
}

bool IsText(const CValue& v) { return v.GetType() == ovString || v.GetType() == ovLPStr; }

Item* UIRoot() {
    Host& h = TheHost();
    if (!h.uiRoot) h.uiRoot = std::make_unique<Item>(ovObjectID, L"UI");
    return h.uiRoot.get();
}

template <class T>
T* FindOwned(Item* owner, int classId) {
    for (auto& o : owner->owned)
        if (o->classId == classId)
            if (auto* t = dynamic_cast<T*>(o.get())) return t;
    return nullptr;
}

// Host-side state of the UI that is not part of any scene.
struct UIState {
    std::function<void(const std::wstring&, const std::wstring&)> questionSink;
    std::set<std::uint64_t> definedLayouts;  // layouts whose _DefineLayout has run
    FrameRecord frame;
};
UIState& State() {
    static auto* s = new UIState;
    return *s;
}

// --- Records behind the handles ----------------------------------------------------------------

struct ProgressItem : Item {
    ProgressItem() : Item(ovProgressBarID, L"ProgressBar") {}
    std::wstring caption;
    long minimum = 0, maximum = 100, step = 1, value = 0;
    bool visible = false, cancelEnabled = false, drawn = false;
};

struct PPGItemRecord : Item {
    PPGItemRecord(std::wstring kind, std::wstring name)
        : Item(ovPPGItemID, std::move(name)), kind(std::move(kind)) {}
    std::wstring kind;
    std::wstring label;
    std::wstring control;
};

struct ViewItem : Item {
    ViewItem(std::wstring type, std::wstring name) : Item(ovViewID, std::move(name)), type(std::move(type)) {}
    std::wstring type;
    long x = 0, y = 0, width = 0, height = 0, state = 0;
    int editDepth = 0;
    std::wstring shown;  // the content whose page is open in this view
};

struct ComItem : Item {
    explicit ComItem(std::wstring progId) : Item(ovObjectID, std::move(progId)) {}
};

template <class T>
T* Get(const CRef& ref) {
    return dynamic_cast<T*>(TheStore().Resolve(ref));
}

// --- Property pages shown in views -------------------------------------------------------------

PropertyItem* PluginProperty(const std::wstring& content) {
    auto* prop = dynamic_cast<PropertyItem*>(FindByPath(content));
    return prop && IsPluginPropertyType(prop->type) ? prop : nullptr;
}

// A page opens: the layout is defined once, then the page hears OnInit.
void OpenPage(const std::wstring& content) {
    PropertyItem* prop = PluginProperty(content);
    if (!prop) return;
    const CRef propRef = prop->Ref();
    PPGLayout layout = ProjectItem(propRef).GetPPGLayout();
    if (layout.IsValid() && State().definedLayouts.insert(layout.GetRef().GetId()).second)
        RunCallback(CallbackName(prop->type, L"_DefineLayout"), layout.GetRef(), nullptr, propRef);
    FirePPGEvent(propRef, ovOnInit);
}

void ClosePage(const std::wstring& content) {
    if (PropertyItem* prop = PluginProperty(content)) FirePPGEvent(prop->Ref(), ovOnClosed);
}

std::wstring ContentOf(const ViewItem* v) {
    auto it = v->attributes.find(L"targetcontent");
    return it == v->attributes.end() ? std::wstring() : std::wstring(it->second.GetAsText().GetWideString());
}

// Brings the page of a "Property Panel" in line with its "targetcontent".
void SyncView(const CRef& viewRef) {
    ViewItem* v = Get<ViewItem>(viewRef);
    if (!v || v->editDepth > 0 || v->type != L"Property Panel") return;
    const std::wstring content = ContentOf(v);
    if (content == v->shown) return;
    const std::wstring old = v->shown;
    v->shown = content;
    if (!old.empty()) ClosePage(old);
    if (!content.empty()) OpenPage(content);
}

ViewItem* MakeView(const std::wstring& type, const std::wstring& name) {
    return ActiveLayoutItem()->Own(std::make_unique<ViewItem>(type, name));
}

// --- Message boxes -------------------------------------------------------------------------------

std::vector<long> Buttons(long flags) {
    switch (flags & 0xF) {
        case 1:
            return {ovMsgOk, ovMsgCancel};
        case 2:
            return {3, 4, 5};  // abort, retry, ignore
        case 3:
            return {ovMsgYes, ovMsgNo, ovMsgCancel};
        case 4:
            return {ovMsgYes, ovMsgNo};
        case 5:
            return {4, ovMsgCancel};  // retry, cancel
        default:
            return {ovMsgOk};
    }
}

// What closing the box without a choice means for each button set.
long CancelButton(long flags) {
    switch (flags & 0xF) {
        case 1:
        case 3:
        case 5:
            return ovMsgCancel;
        case 2:
            return 3;
        case 4:
            return ovMsgNo;
        default:
            return ovMsgOk;
    }
}

bool ButtonOf(const CValue& answer, long& button) {
    if (IsText(answer)) {
        const std::wstring t = Lower(Trim(answer.GetAsText().GetWideString()));
        static const std::pair<const wchar_t*, long> words[] = {{L"ok", 1},    {L"cancel", 2}, {L"abort", 3},
                                                                {L"retry", 4}, {L"ignore", 5}, {L"yes", 6},
                                                                {L"no", 7}};
        for (const auto& w : words)
            if (t == w.first) {
                button = w.second;
                return true;
            }
        CValue c = answer;
        if (c.ChangeType(ovInt4) != CStatus::OK) return false;
        button = static_cast<int>(c);
        return true;
    }
    if (answer.GetType() == ovBool || answer.IsEmpty() || answer.GetType() == ovArray ||
        answer.GetType() == ovRef)
        return false;
    button = static_cast<long>(answer);
    return true;
}

std::wstring ButtonName(long b) {
    switch (b) {
        case 1:
            return L"OK";
        case 2:
            return L"Cancel";
        case 3:
            return L"Abort";
        case 4:
            return L"Retry";
        case 5:
            return L"Ignore";
        case 6:
            return L"Yes";
        case 7:
            return L"No";
        default:
            return std::to_wstring(b);
    }
}

// --- Progress bar ------------------------------------------------------------------------------

void Draw(ProgressItem* p) {
    if (!TheHost().drawProgress || !p->visible) return;
    const long span = p->maximum - p->minimum;
    double f = span > 0 ? static_cast<double>(p->value - p->minimum) / static_cast<double>(span) : 0.0;
    f = f < 0.0 ? 0.0 : (f > 1.0 ? 1.0 : f);
    constexpr int kWidth = 30;
    const int filled = static_cast<int>(f * kWidth);
    char bar[kWidth + 1];
    for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kWidth] = '\0';
    const CString caption(p->caption);
    std::fprintf(stderr, "\r\033[K%s [%s] %3d%%", caption.GetAsciiString(), bar, static_cast<int>(f * 100.0));
    std::fflush(stderr);
    p->drawn = true;
}

void EndDrawing(ProgressItem* p) {
    if (p->drawn) {
        std::fputc('\n', stderr);
        std::fflush(stderr);
    }
    p->drawn = false;
}

// --- Scripting objects ---------------------------------------------------------------------------

const wchar_t* const kBrowserProperties[] = {L"Filter", L"DialogTitle", L"InitialDirectory", L"FilePathName"};

bool IsBrowserProperty(const std::wstring& name) {
    for (const wchar_t* p : kBrowserProperties)
        if (name == p) return true;
    return false;
}

}  // namespace

// --- Questions -----------------------------------------------------------------------------------

std::function<void(const std::wstring&, const std::wstring&)>& QuestionSink() { return State().questionSink; }

CValue AskQuestion(const std::wstring& kind, const std::wstring& text, bool& answered) {
    Host& h = TheHost();
    const std::wstring question = kind + L": " + text;
    AppendBounded(h.questions, question);
    CValue answer;
    answered = !h.answers.empty();
    if (answered) {
        answer = h.answers.front();
        h.answers.erase(h.answers.begin());
    }
    if (State().questionSink)
        State().questionSink(question,
                             answered ? (answer.IsEmpty() ? std::wstring(L"(cancel)")
                                                          : std::wstring(answer.GetAsText().GetWideString()))
                                      : std::wstring(L"(default)"));
    return answer;
}

void ShowToUser(const std::wstring& kind, const std::wstring& text) {
    const std::wstring question = kind + L": " + text;
    AppendBounded(TheHost().questions, question);
    if (State().questionSink) State().questionSink(question, L"");
}

// --- Property pages --------------------------------------------------------------------------------

PPGEventResult FirePPGEvent(const CRef& property, int eventId, const CRef& source,
                            const std::wstring& button) {
    PPGEventResult r;
    auto* prop = dynamic_cast<PropertyItem*>(TheStore().Resolve(property));
    if (!prop) {
        r.status = Fail();
        return r;
    }
    const std::wstring name = CallbackName(prop->type, L"_PPGEvent");
    if (!FindCallback(name)) {
        r.status = CStatus(CStatus::MemberNotFound);
        return r;
    }
    std::map<std::wstring, CValue> attributes;
    attributes[L"EventID"] = CValue(eventId);
    if (eventId == ovButtonClicked || !button.empty()) attributes[L"Button"] = CValue(button);
    r.called = true;
    r.status = RunCallback(name, source.GetId() ? source : property, &attributes, property);
    auto it = attributes.find(L"Refresh");
    r.refresh = it != attributes.end() && static_cast<bool>(it->second);
    return r;
}

PPGEventResult PressPPGButton(const CRef& property, const std::wstring& button) {
    return FirePPGEvent(property, ovButtonClicked, property, button);
}

PPGEventResult ChangePPGParameter(const CRef& parameter, const CValue& value) {
    PPGEventResult r;
    auto* p = dynamic_cast<ParamItem*>(TheStore().Resolve(parameter));
    if (!p || !PutParamValue(p, value, ovNow)) {
        r.status = Fail();
        return r;
    }
    if (!p->owner) return r;
    return FirePPGEvent(p->owner->Ref(), ovParameterChange, parameter);
}

bool InspectItem(const CRef& itemRef, const std::wstring& title, long mode, bool& cancelled) {
    cancelled = false;
    Item* item = TheStore().Resolve(itemRef);
    if (!item) return false;
    const std::wstring content = FullName(item);
    const std::wstring text = title.empty() ? content : title;

    // A page already showing the item is recycled and hears OnInit again; otherwise a new
    // "Property Panel" opens on it.
    CRef viewRef;
    for (Item* v : ViewsShowing(content))
        if (static_cast<ViewItem*>(v)->type == L"Property Panel") viewRef = v->Ref();
    if (viewRef.GetId()) {
        OpenPage(content);
    } else {
        ViewItem* v = MakeView(L"Property Panel", title.empty() ? item->name : title);
        v->attributes[L"targetcontent"] = CValue(content);
        viewRef = v->Ref();
        SyncView(viewRef);
    }
    if (mode != kInspectModal) {
        ShowToUser(L"InspectObj", text);
        return true;
    }

    bool answered = false;
    const CValue answer = AskQuestion(L"InspectObj", text, answered);
    bool ok = true;
    if (answered) {
        if (answer.IsEmpty()) {
            ok = false;
        } else if (IsText(answer)) {
            const std::wstring t = Trim(answer.GetAsText().GetWideString());
            const std::wstring l = Lower(t);
            if (l == L"ok" || l == L"yes" || l == L"true") {
                ok = true;
            } else if (l == L"cancel" || l == L"no" || l == L"false") {
                ok = false;
            } else if (t.find(L'=') != std::wstring::npos) {
                // "name=value;name=value": the user fills the page, then presses OK.
                std::size_t start = 0;
                while (start <= t.size()) {
                    std::size_t end = t.find(L';', start);
                    if (end == std::wstring::npos) end = t.size();
                    const std::wstring pair = Trim(t.substr(start, end - start));
                    start = end + 1;
                    if (pair.empty()) continue;
                    const std::size_t eq = pair.find(L'=');
                    const std::wstring name = Trim(pair.substr(0, eq));
                    const std::wstring value = eq == std::wstring::npos ? L"" : pair.substr(eq + 1);
                    Item* cur = TheStore().Resolve(itemRef);
                    Parameter param = cur ? ProjectItem(itemRef).GetParameter(name) : Parameter();
                    if (!param.IsValid()) {
                        TheHost().Log(L"InspectObj: the page has no parameter \"" + name +
                                          L"\"; that part of the answer is left out.",
                                      ovWarning);
                        continue;
                    }
                    if (!AcceptsValue(dynamic_cast<ParamItem*>(TheStore().Resolve(param.GetRef())),
                                      CValue(value))) {
                        TheHost().Log(L"InspectObj: the parameter \"" + name +
                                          L"\" does not take the value \"" + value +
                                          L"\"; that part of the answer is left out.",
                                      ovWarning);
                        continue;
                    }
                    ChangePPGParameter(param.GetRef(), CValue(value));
                }
            } else {
                TheHost().Log(L"InspectObj: the scripted answer \"" + t +
                                  L"\" is neither OK nor Cancel nor name=value; the page answers OK.",
                              ovWarning);
            }
        } else {
            ok = static_cast<bool>(answer);
        }
    }
    cancelled = !ok;
    if (ViewItem* v = Get<ViewItem>(viewRef)) View(v->Ref()).Close();
    return true;
}

// --- Views -----------------------------------------------------------------------------------------

Item* ActiveLayoutItem() {
    Item* root = UIRoot();
    for (auto& o : root->owned)
        if (o->classId == ovLayoutID) return o.get();
    return root->Own(std::make_unique<Item>(ovLayoutID, L"Layout"));
}

std::vector<Item*> ViewsShowing(const std::wstring& content) {
    std::vector<Item*> out;
    for (auto& o : ActiveLayoutItem()->owned)
        if (auto* v = dynamic_cast<ViewItem*>(o.get()))
            if (ContentOf(v) == content) out.push_back(v);
    return out;
}

FrameRecord& LastFrame() { return State().frame; }

}  // namespace orvhost

using namespace orvhost;

// --- UIToolkit -------------------------------------------------------------------------------------

namespace {

long AnswerMsgBox(const CString& text, long flags) {
    const std::vector<long> buttons = Buttons(flags);
    bool answered = false;
    const CValue answer = AskQuestion(L"MsgBox", text.GetWideString(), answered);
    const long first = buttons.front();
    if (!answered) return first;
    if (answer.IsEmpty()) return CancelButton(flags);
    long button = 0;
    bool fits = ButtonOf(answer, button);
    if (fits) {
        fits = false;
        for (long b : buttons) fits = fits || b == button;
    }
    if (!fits) {
        std::wstring names;
        for (long b : buttons) names += (names.empty() ? L"" : L", ") + ButtonName(b);
        TheHost().Log(L"MsgBox: the scripted answer \"" + std::wstring(answer.GetAsText().GetWideString()) +
                          L"\" is not a button of this box (" + names + L"); it answers " +
                          ButtonName(first) + L".",
                      ovWarning);
        return first;
    }
    return button;
}

}  // namespace

CStatus UIToolkit::MsgBox(const CString& text, long flags, const CString& caption, long& result) const {
    result = AnswerMsgBox(text, flags);
    AppendBounded(TheHost().messageBoxes,
                  MessageBoxRecord{text.GetWideString(), caption.GetWideString(), flags, result});
    return CStatus::OK;
}

CStatus UIToolkit::MsgBox(const CString& text, long flags, const CString& caption, int& result) const {
    long r = 0;
    const CStatus st = MsgBox(text, flags, caption, r);
    result = static_cast<int>(r);
    return st;
}

ProgressBar UIToolkit::GetProgressBar() const {
    Item* root = UIRoot();
    if (auto* p = FindOwned<ProgressItem>(root, ovProgressBarID)) return ProgressBar(p->Ref());
    return ProgressBar(root->Own(std::make_unique<ProgressItem>())->Ref());
}

// --- ProgressBar -----------------------------------------------------------------------------------

CStatus ProgressBar::PutCaption(const CString& caption) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return Fail();
    p->caption = caption.GetWideString();
    Draw(p);
    return CStatus::OK;
}
CString ProgressBar::GetCaption() const {
    auto* p = Get<ProgressItem>(m_ref);
    return p ? CString(p->caption) : CString();
}
CStatus ProgressBar::PutMinimum(long v) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return Fail();
    p->minimum = v;
    return CStatus::OK;
}
CStatus ProgressBar::PutMaximum(long v) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return Fail();
    p->maximum = v;
    return CStatus::OK;
}
long ProgressBar::GetMaximum() const {
    auto* p = Get<ProgressItem>(m_ref);
    return p ? p->maximum : 0;
}
CStatus ProgressBar::PutStep(long v) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return Fail();
    p->step = v;
    return CStatus::OK;
}
CStatus ProgressBar::PutValue(long v) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return Fail();
    p->value = v;
    Draw(p);
    return CStatus::OK;
}
long ProgressBar::GetValue() const {
    auto* p = Get<ProgressItem>(m_ref);
    return p ? p->value : 0;
}
long ProgressBar::Increment(long n) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return 0;
    p->value += n > 0 ? n : p->step;
    if (p->value > p->maximum) p->value = p->maximum;
    Draw(p);
    return p->value;
}
CStatus ProgressBar::PutVisible(bool on) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return Fail();
    p->visible = on;
    if (on)
        Draw(p);
    else
        EndDrawing(p);
    return CStatus::OK;
}
bool ProgressBar::GetVisible() const {
    auto* p = Get<ProgressItem>(m_ref);
    return p && p->visible;
}
CStatus ProgressBar::PutCancelEnabled(bool on) {
    auto* p = Get<ProgressItem>(m_ref);
    if (!p) return Fail();
    p->cancelEnabled = on;
    return CStatus::OK;
}
// Nobody sits at the bar to press Cancel.
bool ProgressBar::IsCancelPressed() const { return false; }

// --- PPGItem ---------------------------------------------------------------------------------------

CStatus PPGItem::PutAttribute(const CString& name, const CValue& value) {
    auto* it = Get<PPGItemRecord>(m_ref);
    if (!it || name.IsEmpty()) return Fail();
    it->attributes[name.GetWideString()] = value;
    return CStatus::OK;
}
CValue PPGItem::GetAttribute(const CString& name) const {
    auto* it = Get<PPGItemRecord>(m_ref);
    if (!it) return CValue();
    auto a = it->attributes.find(name.GetWideString());
    return a == it->attributes.end() ? CValue() : a->second;
}
CString PPGItem::GetName() const {
    auto* it = Get<PPGItemRecord>(m_ref);
    return it ? CString(it->name) : CString();
}
CString PPGItem::GetLabel() const {
    auto* it = Get<PPGItemRecord>(m_ref);
    return it ? CString(it->label) : CString();
}
CString PPGItem::GetKind() const {
    auto* it = Get<PPGItemRecord>(m_ref);
    return it ? CString(it->kind) : CString();
}
// The control of an item as given (a number, or a name such as "Combo"); buttons are buttons.
// -1 means the host's default control for the parameter.
int PPGItem::GetControlType() const {
    auto* it = Get<PPGItemRecord>(m_ref);
    if (!it) return -1;
    if (it->kind == L"Button") return ovControlButton;
    const std::wstring c = Lower(Trim(it->control));
    if (c.empty()) return -1;
    static const std::pair<const wchar_t*, int> names[] = {
        {L"number", ovControlNumber},     {L"string", ovControlString}, {L"boolean", ovControlBoolean},
        {L"combo", ovControlCombo},       {L"radio", ovControlRadio},   {L"button", ovControlButton},
        {L"filepath", ovControlFilePath}, {L"folder", ovControlFolder}, {L"grid", ovControlGrid},
        {L"static", ovControlStatic},     {L"edit", ovControlEdit},     {L"check", ovControlCheck},
        {L"listbox", ovControlListBox}};
    for (const auto& n : names)
        if (c == n.first) return n.second;
    CValue v{CString(c)};
    if (v.ChangeType(ovInt4) == CStatus::OK) return static_cast<int>(v);
    return -1;
}
CValueArray PPGItem::GetUIItems() const {
    auto* it = Get<PPGItemRecord>(m_ref);
    if (!it) return CValueArray();
    auto a = it->attributes.find(ovUIItems);
    return a == it->attributes.end() ? CValueArray() : static_cast<const CValueArray&>(a->second);
}

// --- PPGLayout -------------------------------------------------------------------------------------

namespace {

Item* LayoutOf(const CRef& ref) {
    Item* it = TheStore().Resolve(ref);
    return it && it->classId == ovPPGLayoutID ? it : nullptr;
}

PPGItem AddRecord(const CRef& layout, const std::wstring& kind, const std::wstring& name,
                  const std::wstring& label = L"", const std::wstring& control = L"") {
    Item* l = LayoutOf(layout);
    if (!l) return PPGItem();
    auto* rec = l->Own(std::make_unique<PPGItemRecord>(kind, name));
    rec->label = label;
    rec->control = control;
    return PPGItem(rec->Ref());
}

std::vector<PPGItemRecord*> Records(Item* layout) {
    std::vector<PPGItemRecord*> out;
    for (auto& o : layout->owned)
        if (auto* r = dynamic_cast<PPGItemRecord*>(o.get())) out.push_back(r);
    return out;
}

}  // namespace

CStatus PPGLayout::Clear() {
    Item* l = LayoutOf(m_ref);
    if (!l) return Fail();
    for (PPGItemRecord* r : Records(l)) l->Disown(r);
    l->attributes.clear();
    return CStatus::OK;
}
PPGItem PPGLayout::AddTab(const CString& name) { return AddRecord(m_ref, L"Tab", name.GetWideString()); }
PPGItem PPGLayout::AddGroup(const CString& name, bool border, long width) {
    PPGItem item = AddRecord(m_ref, L"Group", name.GetWideString(), name.GetWideString());
    item.PutAttribute(L"Border", CValue(border));
    if (width != 0) item.PutAttribute(ovUICX, CValue(width));
    return item;
}
PPGItem PPGLayout::EndGroup() { return AddRecord(m_ref, L"EndGroup", L""); }
PPGItem PPGLayout::AddRow() { return AddRecord(m_ref, L"Row", L""); }
PPGItem PPGLayout::EndRow() { return AddRecord(m_ref, L"EndRow", L""); }
PPGItem PPGLayout::AddItem(const CString& parameter, const CString& label, const CString& control) {
    return AddRecord(m_ref, L"Item", parameter.GetWideString(), label.GetWideString(),
                     control.GetWideString());
}
PPGItem PPGLayout::AddButton(const CString& name, const CString& label) {
    return AddRecord(m_ref, L"Button", name.GetWideString(), label.GetWideString(), L"Button");
}
PPGItem PPGLayout::AddEnumControl(const CString& parameter, const CValueArray& items, const CString& label,
                                  const CString& control) {
    PPGItem item =
        AddRecord(m_ref, L"Enum", parameter.GetWideString(), label.GetWideString(), control.GetWideString());
    item.PutAttribute(ovUIItems, CValue(items));
    return item;
}
PPGItem PPGLayout::AddSpacer(long width, long height) {
    PPGItem item = AddRecord(m_ref, L"Spacer", L"");
    item.PutAttribute(ovUICX, CValue(width));
    item.PutAttribute(L"cy", CValue(height));
    return item;
}
PPGItem PPGLayout::GetItem(const CString& name) const {
    Item* l = LayoutOf(m_ref);
    if (!l || name.IsEmpty()) return PPGItem();
    for (PPGItemRecord* r : Records(l))
        if (r->name == name.GetWideString()) return PPGItem(r->Ref());
    return PPGItem();
}
PPGItem PPGLayout::GetItem(long index) const {
    Item* l = LayoutOf(m_ref);
    if (!l) return PPGItem();
    std::vector<PPGItemRecord*> all = Records(l);
    return index >= 0 && index < static_cast<long>(all.size())
               ? PPGItem(all[static_cast<std::size_t>(index)]->Ref())
               : PPGItem();
}
long PPGLayout::GetCount() const {
    Item* l = LayoutOf(m_ref);
    return l ? static_cast<long>(Records(l).size()) : 0;
}
CStatus PPGLayout::PutAttribute(const CString& name, const CValue& value) {
    Item* l = LayoutOf(m_ref);
    if (!l || name.IsEmpty()) return Fail();
    l->attributes[name.GetWideString()] = value;
    return CStatus::OK;
}
CValue PPGLayout::GetAttribute(const CString& name) const {
    Item* l = LayoutOf(m_ref);
    if (!l) return CValue();
    auto a = l->attributes.find(name.GetWideString());
    return a == l->attributes.end() ? CValue() : a->second;
}

int PPGEventContext::GetEventID() const {
    const CValue id = GetAttribute(L"EventID");
    return id.IsEmpty() ? ovUndefined : static_cast<int>(id);
}

// --- View, Layout, Desktop -------------------------------------------------------------------------

CString View::GetName() const {
    auto* v = Get<ViewItem>(m_ref);
    return v ? CString(v->name) : CString();
}
CString View::GetType() const {
    auto* v = Get<ViewItem>(m_ref);
    return v ? CString(v->type) : CString();
}
CStatus View::BeginEdit() {
    auto* v = Get<ViewItem>(m_ref);
    if (!v) return Fail();
    ++v->editDepth;
    return CStatus::OK;
}
// Edits made between BeginEdit and EndEdit take effect together here.
CStatus View::EndEdit() {
    auto* v = Get<ViewItem>(m_ref);
    if (!v) return Fail();
    if (v->editDepth > 0) --v->editDepth;
    SyncView(m_ref);
    return CStatus::OK;
}
CStatus View::Move(long x, long y) {
    auto* v = Get<ViewItem>(m_ref);
    if (!v) return Fail();
    v->x = x;
    v->y = y;
    return CStatus::OK;
}
CStatus View::Resize(long width, long height) {
    auto* v = Get<ViewItem>(m_ref);
    if (!v || width < 0 || height < 0) return Fail();
    v->width = width;
    v->height = height;
    return CStatus::OK;
}
CStatus View::PutState(long state) {
    auto* v = Get<ViewItem>(m_ref);
    if (!v) return Fail();
    v->state = state;
    return CStatus::OK;
}
long View::GetState() const {
    auto* v = Get<ViewItem>(m_ref);
    return v ? v->state : 0;
}
// Besides what was put, a view answers its geometry: "left", "top", "width", "height".
CString View::GetAttributeValue(const CString& name) const {
    auto* v = Get<ViewItem>(m_ref);
    if (!v) return CString();
    const std::wstring n = name.GetWideString();
    auto a = v->attributes.find(n);
    if (a != v->attributes.end()) return a->second.GetAsText();
    if (n == L"left") return CString(std::to_wstring(v->x));
    if (n == L"top") return CString(std::to_wstring(v->y));
    if (n == L"width") return CString(std::to_wstring(v->width));
    if (n == L"height") return CString(std::to_wstring(v->height));
    return CString();
}
CStatus View::PutAttributeValue(const CString& name, const CString& value) {
    auto* v = Get<ViewItem>(m_ref);
    if (!v || name.IsEmpty()) return Fail();
    v->attributes[name.GetWideString()] = CValue(value);
    if (name == L"targetcontent") SyncView(m_ref);
    return CStatus::OK;
}
CStatus View::Close() {
    auto* v = Get<ViewItem>(m_ref);
    if (!v) return Fail();
    const std::wstring shown = v->shown;
    v->shown.clear();
    if (!shown.empty()) ClosePage(shown);
    if ((v = Get<ViewItem>(m_ref)) != nullptr && v->owner) v->owner->Disown(v);
    return CStatus::OK;
}

CStatus Layout::CreateView(const CString& type, const CString& name, View& result) {
    result = View();
    Item* l = TheStore().Resolve(m_ref);
    if (!l || l->classId != ovLayoutID || type.IsEmpty()) return Fail();
    auto* v = l->Own(std::make_unique<ViewItem>(type.GetWideString(), name.GetWideString()));
    result = View(v->Ref());
    return CStatus::OK;
}
CRefArray Layout::GetViews() const {
    CRefArray out;
    Item* l = TheStore().Resolve(m_ref);
    if (!l || l->classId != ovLayoutID) return out;
    for (auto& o : l->owned)
        if (o->classId == ovViewID) out.Add(o->Ref());
    return out;
}

Layout Desktop::GetActiveLayout() const { return Layout(ActiveLayoutItem()->Ref()); }

// --- CComAPIHandler --------------------------------------------------------------------------------

CComAPIHandler::CComAPIHandler(const CValue& value) {
    if (value.GetType() == ovRef) m_ref = static_cast<CRef>(value);
    if (!Get<ComItem>(m_ref)) m_ref = CRef();
}

CComAPIHandler::operator CValue() const { return CValue(m_ref); }

CStatus CComAPIHandler::CreateInstance(const CString& name) {
    m_ref = CRef();
    if (name != L"ORV.UIToolkit") {
        TheHost().Log(L"CreateInstance: the host has no scripting object \"" +
                          std::wstring(name.GetWideString()) + L"\".",
                      ovError);
        return CStatus(CStatus::MemberNotFound);
    }
    Item* root = UIRoot();
    for (auto& o : root->owned)
        if (auto* c = dynamic_cast<ComItem*>(o.get()))
            if (c->name == L"ORV.UIToolkit") {
                m_ref = c->Ref();
                return CStatus::OK;
            }
    m_ref = root->Own(std::make_unique<ComItem>(L"ORV.UIToolkit"))->Ref();
    return CStatus::OK;
}

CValue CComAPIHandler::GetProperty(const CString& name) const {
    auto* c = Get<ComItem>(m_ref);
    if (!c) return CValue();
    const std::wstring n = name.GetWideString();
    if (c->name == L"ORV.UIToolkit") {
        if (n != L"FileBrowser") return CValue();
        if (auto* b = FindOwned<ComItem>(c, ovObjectID)) return CValue(b->Ref());
        return CValue(c->Own(std::make_unique<ComItem>(L"FileBrowser"))->Ref());
    }
    if (c->name == L"FileBrowser" && IsBrowserProperty(n)) {
        auto a = c->attributes.find(n);
        return a == c->attributes.end() ? CValue(CString()) : a->second;
    }
    return CValue();
}

CStatus CComAPIHandler::PutProperty(const CString& name, const CValue& value) {
    auto* c = Get<ComItem>(m_ref);
    if (!c) return Fail();
    const std::wstring n = name.GetWideString();
    if (c->name == L"FileBrowser" && IsBrowserProperty(n)) {
        c->attributes[n] = CValue(value.GetAsText());
        return CStatus::OK;
    }
    TheHost().Log(L"PutProperty: \"" + c->name + L"\" has no property \"" + n + L"\".", ovError);
    return CStatus(CStatus::MemberNotFound);
}

// The browser asks for a path: the next scripted answer is the chosen file, an empty answer or
// an empty queue is Cancel, which leaves "FilePathName" empty.
CStatus CComAPIHandler::Call(const CString& name, CValue& result, const CValueArray&) {
    result = CValue();
    auto* c = Get<ComItem>(m_ref);
    if (!c) return Fail();
    const std::wstring n = name.GetWideString();
    if (c->name == L"FileBrowser" && (n == L"ShowOpen" || n == L"ShowSave")) {
        const std::wstring title = GetProperty(L"DialogTitle").GetAsText().GetWideString();
        bool answered = false;
        const CValue answer = AskQuestion(n, title, answered);
        if ((c = Get<ComItem>(m_ref)) == nullptr) return Fail();
        c->attributes[L"FilePathName"] = CValue(answered ? answer.GetAsText() : CString());
        return CStatus::OK;
    }
    TheHost().Log(L"Call: \"" + c->name + L"\" has no method \"" + n + L"\".", ovError);
    return CStatus(CStatus::MemberNotFound);
}

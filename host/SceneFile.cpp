// Scene files (.orvscene): the whole scene as one JSON document. Objects are listed depth
// first from the scene root, each with its parent's index; every reference to an item is the
// index of the object it belongs to and the names of the items from that object down to it.
// Values keep their types, curves their keys, blobs their bytes (base64). Saving, loading and
// saving again gives the same bytes: nothing is written that loading does not rebuild, and
// the JSON writer orders keys and prints numbers the same way every time.
//
// Opening builds the new scene beside the old one and keeps the old one if the file cannot be
// read; a new scene and an opened scene fire MyNewScene_OnEvent and MyOpenScene_OnEvent.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "AnimHooks.h"
#include "HostTesting.h"
#include "TextCodec.h"

using namespace ORV;
using nlohmann::json;

namespace orvhost {

namespace {

constexpr int kFormatVersion = 1;
// Real scenes nest a handful of levels; the readers of values and parameter lists recurse, so
// a deeper file is refused before they see it.
constexpr std::size_t kMaxNesting = 1000;

// --- Text ---------------------------------------------------------------------------------------

const char* kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Base64(const std::vector<unsigned char>& bytes) {
    std::string out;
    std::size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        const unsigned v = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        out += kBase64[(v >> 18) & 63];
        out += kBase64[(v >> 12) & 63];
        out += kBase64[(v >> 6) & 63];
        out += kBase64[v & 63];
    }
    if (i + 1 == bytes.size()) {
        const unsigned v = bytes[i] << 16;
        out += kBase64[(v >> 18) & 63];
        out += kBase64[(v >> 12) & 63];
        out += "==";
    } else if (i + 2 == bytes.size()) {
        const unsigned v = (bytes[i] << 16) | (bytes[i + 1] << 8);
        out += kBase64[(v >> 18) & 63];
        out += kBase64[(v >> 12) & 63];
        out += kBase64[(v >> 6) & 63];
        out += '=';
    }
    return out;
}

bool FromBase64(const std::string& text, std::vector<unsigned char>& out) {
    out.clear();
    if (text.size() % 4 != 0) return false;
    auto value = [](char c) -> int {
        const char* p = c ? std::strchr(kBase64, c) : nullptr;
        return p ? static_cast<int>(p - kBase64) : -1;
    };
    for (std::size_t i = 0; i < text.size(); i += 4) {
        int v[4];
        int pad = 0;
        for (int k = 0; k < 4; ++k) {
            const char c = text[i + k];
            if (c == '=' && i + 4 == text.size() && k >= 2) {
                v[k] = 0;
                ++pad;
            } else {
                if (pad) return false;
                v[k] = value(c);
                if (v[k] < 0) return false;
            }
        }
        const unsigned n = (v[0] << 18) | (v[1] << 12) | (v[2] << 6) | v[3];
        out.push_back(static_cast<unsigned char>(n >> 16));
        if (pad < 2) out.push_back(static_cast<unsigned char>((n >> 8) & 0xFF));
        if (pad < 1) out.push_back(static_cast<unsigned char>(n & 0xFF));
    }
    return true;
}

// --- Reading without exceptions: every access checks the type first ------------------------------

const json* Field(const json& j, const char* key) {
    if (!j.is_object()) return nullptr;
    auto it = j.find(key);
    return it == j.end() ? nullptr : &*it;
}

bool GetString(const json& j, const char* key, std::wstring& out) {
    const json* f = Field(j, key);
    if (!f || !f->is_string()) return false;
    out = Wide(f->get_ref<const std::string&>());
    return true;
}

std::wstring String(const json& j, const char* key) {
    std::wstring s;
    GetString(j, key, s);
    return s;
}

long Integer(const json& j, const char* key, long fallback) {
    const json* f = Field(j, key);
    if (!f || !f->is_number_integer()) return fallback;
    return static_cast<long>(f->get<long long>());
}

bool Bool(const json& j, const char* key, bool fallback) {
    const json* f = Field(j, key);
    return f && f->is_boolean() ? f->get<bool>() : fallback;
}

const json& Array(const json& j, const char* key) {
    static const json empty = json::array();
    const json* f = Field(j, key);
    return f && f->is_array() ? *f : empty;
}

// Numbers that JSON cannot hold (NaN, infinities) are written as text.
json Num(double d) {
    if (std::isnan(d)) return "nan";
    if (std::isinf(d)) return d > 0 ? "inf" : "-inf";
    return d;
}

bool ReadNum(const json& j, double& out) {
    if (j.is_number()) {
        out = j.get<double>();
        return true;
    }
    if (!j.is_string()) return false;
    const std::string& s = j.get_ref<const std::string&>();
    if (s == "nan")
        out = std::nan("");
    else if (s == "inf")
        out = HUGE_VAL;
    else if (s == "-inf")
        out = -HUGE_VAL;
    else
        return false;
    return true;
}

// How deep arrays and objects nest in a document (a plain value is 0), without recursion;
// stops counting once past `limit`.
std::size_t NestingDepth(const json& doc, std::size_t limit) {
    std::vector<std::pair<const json*, std::size_t>> pending{{&doc, 0}};
    std::size_t deepest = 0;
    while (!pending.empty()) {
        const auto [j, depth] = pending.back();
        pending.pop_back();
        if (!j->is_structured()) continue;
        deepest = std::max(deepest, depth + 1);
        if (deepest > limit) return deepest;
        for (const json& child : *j) pending.push_back({&child, depth + 1});
    }
    return deepest;
}

// Whether a saved class id is one of `base` (itself or a class derived from it).
bool ClassIs(long cls, int base) {
    if (cls <= 0 || cls > 0xFFFF) return false;
    for (int c = static_cast<int>(cls); c != 0; c = ParentClassId(c))
        if (c == base) return true;
    return false;
}

// Whether a saved number is one of the host's value types.
bool KnownValueType(long t) {
    switch (t) {
        case ovEmpty:
        case ovInt2:
        case ovInt4:
        case ovFloat:
        case ovDouble:
        case ovString:
        case ovBool:
        case ovRef:
        case ovUByte:
        case ovUInt4:
        case ovInt8:
        case ovPtr:
        case ovLPStr:
        case ovVector3:
        case ovArray:
            return true;
        default:
            return false;
    }
}

// --- Writing ------------------------------------------------------------------------------------

class Writer {
public:
    json Save();

private:
    json Ref(const Item* item) const;
    json Value(const CValue& v) const;
    json Param(const ParamItem* p) const;
    json Params(const std::vector<ParamItem*>& params) const;
    json Property(const PropertyItem* p) const;
    json Source(const Item* source) const;
    json Attributes(const std::map<std::wstring, CValue>& attrs) const;
    json Object(const Object3D* o) const;
    json Operator(const OperatorItem* op) const;

    std::vector<Object3D*> m_objects;
    std::map<const Item*, long> m_index;
};

json Writer::Ref(const Item* item) const {
    if (!item) return nullptr;
    std::vector<std::string> names;
    const Item* it = item;
    while (it && !dynamic_cast<const Object3D*>(it) && it != Project()) {
        names.push_back(Utf8(it->name));
        it = it->owner;
    }
    std::reverse(names.begin(), names.end());
    json r = json::object();
    if (it == Project()) {
        r["project"] = names;
        return r;
    }
    auto found = m_index.find(it);
    if (!it || found == m_index.end()) return nullptr;
    r["object"] = found->second;
    if (!names.empty()) r["path"] = names;
    return r;
}

json Writer::Value(const CValue& v) const {
    const int t = static_cast<int>(v.GetType());
    json out = json::array({t});
    switch (v.GetType()) {
        case ovEmpty:
        case ovPtr:
            return json::array({static_cast<int>(ovEmpty)});
        case ovBool:
            out.push_back(static_cast<bool>(v));
            return out;
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
            out.push_back(static_cast<long>(v));
            return out;
        case ovInt8:
            out.push_back(static_cast<long long>(static_cast<long>(v)));
            return out;
        case ovFloat:
            out.push_back(Num(static_cast<double>(static_cast<float>(v))));
            return out;
        case ovDouble:
            out.push_back(Num(static_cast<double>(v)));
            return out;
        case ovString:
        case ovLPStr:
            out.push_back(Utf8(v.GetAsText().GetWideString()));
            return out;
        case ovRef:
            out.push_back(Ref(TheStore().Resolve(static_cast<CRef>(v))));
            return out;
        case ovVector3: {
            const MATH::CVector3 p = v;
            out.push_back(json::array({Num(p.x), Num(p.y), Num(p.z)}));
            return out;
        }
        case ovArray: {
            const CValueArray& a = v;
            json items = json::array();
            for (long i = 0; i < a.GetCount(); ++i) items.push_back(Value(a[i]));
            out.push_back(items);
            return out;
        }
        default:
            return json::array({static_cast<int>(ovEmpty)});
    }
}

json Writer::Source(const Item* source) const {
    json s = json::object();
    if (auto* c = dynamic_cast<const FCurveItem*>(source)) {
        const_cast<FCurveItem*>(c)->FixTangents();
        s["kind"] = "fcurve";
        s["type"] = c->curveType;
        s["interpolation"] = c->interpolation;
        json keys = json::array();
        for (const CurveKey& k : c->keys)
            keys.push_back(
                json::array({Num(k.time), Num(k.value), k.interpolation, Num(k.leftX), Num(k.leftY),
                             Num(k.rightX), Num(k.rightY), k.autoTangents, k.constraints}));
        s["keys"] = keys;
    } else if (auto* e = dynamic_cast<const ExpressionItem*>(source)) {
        s["kind"] = "expression";
        s["text"] = Utf8(e->text);
    }
    return s;
}

json Writer::Param(const ParamItem* p) const {
    // Empty limits, texts and defaults are left out; loading leaves them empty.
    json j = json::object();
    j["name"] = Utf8(p->name);
    j["type"] = static_cast<int>(p->type);
    j["caps"] = p->caps;
    j["value"] = Value(p->value);
    if (!p->def.IsEmpty()) j["default"] = Value(p->def);
    if (!p->min.IsEmpty()) j["min"] = Value(p->min);
    if (!p->max.IsEmpty()) j["max"] = Value(p->max);
    if (!p->smin.IsEmpty()) j["smin"] = Value(p->smin);
    if (!p->smax.IsEmpty()) j["smax"] = Value(p->smax);
    if (!p->label.empty()) j["label"] = Utf8(p->label);
    if (!p->description.empty()) j["description"] = Utf8(p->description);
    if (p->source) j["source"] = Source(p->source);
    if (!p->params.empty()) j["params"] = Params(p->params);
    for (const auto& o : p->owned)
        if (auto* g = dynamic_cast<const GridItem*>(o.get())) {
            json grid = json::object();
            grid["rows"] = g->rows;
            grid["cols"] = g->cols;
            json labels = json::array();
            for (const std::wstring& l : g->labels) labels.push_back(Utf8(l));
            grid["labels"] = labels;
            json data = json::array();
            for (const CValue& v : g->data) data.push_back(Value(v));
            grid["data"] = data;
            j["grid"] = grid;
        }
    return j;
}

json Writer::Params(const std::vector<ParamItem*>& params) const {
    json a = json::array();
    for (const ParamItem* p : params) a.push_back(Param(p));
    return a;
}

json Writer::Attributes(const std::map<std::wstring, CValue>& attrs) const {
    json a = json::object();
    for (const auto& kv : attrs)
        if (kv.second.GetType() != ovPtr) a[Utf8(kv.first)] = Value(kv.second);
    return a;
}

json Writer::Property(const PropertyItem* p) const {
    json j = json::object();
    j["type"] = Utf8(p->type);
    j["name"] = Utf8(p->name);
    j["class"] = p->classId;
    j["params"] = Params(p->params);
    if (p->classId == ovUserDataBlobID || !p->blob.empty()) {
        j["blob"] = Base64(p->blob);
        j["blobSet"] = p->blobSet;
    }
    if (!p->attributes.empty()) j["attributes"] = Attributes(p->attributes);
    return j;
}

json Writer::Object(const Object3D* o) const {
    json j = json::object();
    j["class"] = o->classId;
    j["type"] = Utf8(o->type);
    j["name"] = Utf8(o->name);
    j["family"] = Utf8(o->family);
    auto parent = o->parent3D ? m_index.find(o->parent3D) : m_index.end();
    j["parent"] = parent == m_index.end() ? -1L : parent->second;
    if (o->kine) {
        json k = json::object();
        if (o->kine->local) k["local"] = Params(o->kine->local->params);
        if (o->kine->global) k["global"] = Params(o->kine->global->params);
        json cns = json::array();
        for (const ConstraintItem* c : o->kine->constraints) {
            json cj = json::object();
            cj["name"] = Utf8(c->name);
            json by = json::array();
            for (std::uint64_t id : c->constraining) {
                auto f = m_index.find(TheStore().Resolve(id));
                if (f != m_index.end()) by.push_back(f->second);
            }
            cj["constraining"] = by;
            cns.push_back(cj);
        }
        k["constraints"] = cns;
        j["kine"] = k;
    }
    json props = json::array();
    for (const PropertyItem* p : o->properties) props.push_back(Property(p));
    j["properties"] = props;
    if (o->primitive) j["primitive"] = Property(static_cast<const PropertyItem*>(o->primitive));
    if (JointItem* joint = JointOf(const_cast<Object3D*>(o))) {
        json jj = json::object();
        jj["params"] = Params(joint->params);
        auto up = m_index.find(TheStore().Resolve(joint->upVector));
        jj["upVector"] = up == m_index.end() ? -1L : up->second;
        j["joint"] = jj;
    }
    if (o->mixer) j["mixer"] = true;
    if (!o->controlPoints.empty()) {
        json pts = json::array();
        for (const auto& p : o->controlPoints)
            pts.push_back(json::array({Num(p.x), Num(p.y), Num(p.z), Num(p.w)}));
        j["controlPoints"] = pts;
    }
    if (!o->attributes.empty()) j["attributes"] = Attributes(o->attributes);
    return j;
}

json Writer::Operator(const OperatorItem* op) const {
    json j = json::object();
    j["type"] = Utf8(op->type);
    j["name"] = Utf8(op->name);
    j["scripted"] = op->scripted;
    j["code"] = Utf8(op->code);
    j["language"] = Utf8(op->language);
    j["alwaysEvaluate"] = op->alwaysEvaluate;
    j["connected"] = op->connected;
    j["mode"] = op->constructionMode;
    json groups = json::array();
    for (const PortGroupItem* g : op->groups) {
        json gj = json::object();
        gj["name"] = Utf8(g->name);
        gj["min"] = g->minInstances;
        gj["max"] = g->maxInstances;
        gj["filter"] = Utf8(g->filter);
        gj["scriptFilter"] = Utf8(g->scriptFilter);
        gj["flags"] = g->flags;
        groups.push_back(gj);
    }
    j["groups"] = groups;
    json ports = json::array();
    for (const PortItem* p : op->ports) {
        json pj = json::object();
        pj["name"] = Utf8(p->name);
        pj["output"] = p->output;
        pj["target"] = Ref(TheStore().Resolve(p->target));
        pj["group"] = p->group;
        pj["index"] = p->index;
        pj["flags"] = p->flags;
        ports.push_back(pj);
    }
    j["ports"] = ports;
    return j;
}

void CollectOps(Item* item, std::vector<OperatorItem*>& out) {
    if (auto* op = dynamic_cast<OperatorItem*>(item)) out.push_back(op);
    for (auto& o : item->owned) CollectOps(o.get(), out);
}

json Writer::Save() {
    m_objects.push_back(Root());
    WalkObjects(Root(), true, [&](Object3D* o) { m_objects.push_back(o); });
    for (std::size_t i = 0; i < m_objects.size(); ++i) m_index[m_objects[i]] = static_cast<long>(i);

    json doc = json::object();
    doc["format"] = "orvscene";
    doc["version"] = kFormatVersion;
    json objects = json::array();
    for (const Object3D* o : m_objects) objects.push_back(Object(o));
    doc["objects"] = objects;

    json project = json::array();
    for (const auto& o : Project()->owned)
        if (auto* p = dynamic_cast<const PropertyItem*>(o.get())) project.push_back(Property(p));
    doc["project"] = project;

    std::vector<OperatorItem*> ops;
    CollectOps(Root(), ops);
    CollectOps(Project(), ops);
    std::stable_sort(ops.begin(), ops.end(), [](const OperatorItem* a, const OperatorItem* b) {
        if (a->connected != b->connected) return a->connected;
        return a->connectOrder < b->connectOrder;
    });
    json opj = json::array();
    for (const OperatorItem* op : ops) opj.push_back(Operator(op));
    doc["operators"] = opj;

    json sel = json::array();
    for (std::uint64_t id : TheHost().scene->selection) {
        json r = Ref(TheStore().Resolve(id));
        if (!r.is_null()) sel.push_back(r);
    }
    doc["selection"] = sel;
    return doc;
}

// --- Reading ------------------------------------------------------------------------------------

class Reader {
public:
    explicit Reader(const json& doc) : m_doc(doc) {}
    bool Load(std::wstring& error);

private:
    bool Fail(const std::wstring& what) {
        if (m_error.empty()) m_error = what;
        return false;
    }
    Item* Resolve(const json& ref) const;
    bool ValueOf(const json& j, CValue& out, bool refsPending);
    void LoadParam(ParamItem* p, const json& j);
    void LoadParams(Item* owner, std::vector<ParamItem*>& params, const json& list);
    void LoadSource(ParamItem* p, const json& j);
    void LoadProperty(PropertyItem* p, const json& j);
    void LoadProperties(Item* owner, std::vector<PropertyItem*>* list, const json& props);
    void LoadAttributes(Item* item, const json& j);
    bool LoadObjects();
    void LoadDetails(std::size_t index, const json& j);
    void LoadOperators();

    const json& m_doc;
    std::vector<Object3D*> m_objects;
    // Values that refer to items are set once every item exists.
    struct PendingRef {
        std::uint64_t item;
        enum Where { Value, Default, Attribute, GridCell } where;
        std::wstring key;
        std::size_t cell;
        json value;
    };
    std::vector<PendingRef> m_pending;
    std::wstring m_error;
};

Item* Reader::Resolve(const json& ref) const {
    if (!ref.is_object()) return nullptr;
    Item* cur = nullptr;
    const json* path = nullptr;
    if (const json* proj = Field(ref, "project")) {
        cur = Project();
        path = proj;
    } else {
        const long index = Integer(ref, "object", -1);
        if (index < 0 || index >= static_cast<long>(m_objects.size())) return nullptr;
        cur = m_objects[static_cast<std::size_t>(index)];
        path = Field(ref, "path");
    }
    if (!path) return cur;
    if (!path->is_array()) return nullptr;
    for (const json& seg : *path) {
        if (!seg.is_string() || !cur) return nullptr;
        const std::wstring name = Wide(seg.get_ref<const std::string&>());
        Item* next = nullptr;
        for (auto& o : cur->owned)
            if (o->name == name && !dynamic_cast<Object3D*>(o.get())) {
                next = o.get();
                break;
            }
        cur = next;
    }
    return cur;
}

bool Reader::ValueOf(const json& j, CValue& out, bool refsPending) {
    out = CValue();
    if (!j.is_array() || j.empty() || !j[0].is_number_integer()) return Fail(L"a value is malformed");
    const int t = j[0].get<int>();
    if (t == ovEmpty) return true;
    if (j.size() < 2) return Fail(L"a value is malformed");
    const json& v = j[1];
    switch (t) {
        case ovBool:
            if (!v.is_boolean()) return Fail(L"a value is malformed");
            out = CValue(v.get<bool>());
            return true;
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
            if (!v.is_number_integer()) return Fail(L"a value is malformed");
            out = CValue(static_cast<long>(v.get<long long>()));
            if (t != ovInt4) out.ChangeType(static_cast<ovValueType>(t));
            return true;
        case ovInt8:
            if (!v.is_number_integer()) return Fail(L"a value is malformed");
            out = CValue(static_cast<long long>(v.get<long long>()));
            return true;
        case ovFloat:
        case ovDouble: {
            double d;
            if (!ReadNum(v, d)) return Fail(L"a value is malformed");
            // A finite number beyond the float range was never written as a float.
            if (t == ovFloat && std::isfinite(d) && std::fabs(d) > FLT_MAX)
                return Fail(L"a value is malformed");
            out = t == ovFloat ? CValue(static_cast<float>(d)) : CValue(d);
            return true;
        }
        case ovString:
            if (!v.is_string()) return Fail(L"a value is malformed");
            out = CValue(Wide(v.get_ref<const std::string&>()));
            return true;
        case ovLPStr:
            if (!v.is_string()) return Fail(L"a value is malformed");
            out = CValue(v.get_ref<const std::string&>());
            return true;
        case ovRef: {
            if (refsPending) {
                out = CValue(CRef());
                return true;
            }
            Item* it = Resolve(v);
            out = CValue(it ? it->Ref() : CRef());
            return true;
        }
        case ovVector3: {
            double x, y, z;
            if (!v.is_array() || v.size() != 3 || !ReadNum(v[0], x) || !ReadNum(v[1], y) || !ReadNum(v[2], z))
                return Fail(L"a value is malformed");
            out = CValue(MATH::CVector3(x, y, z));
            return true;
        }
        case ovArray: {
            if (!v.is_array()) return Fail(L"a value is malformed");
            CValueArray a;
            for (const json& e : v) {
                CValue ev;
                if (!ValueOf(e, ev, refsPending)) return false;
                a.Add(ev);
            }
            out = CValue(a);
            return true;
        }
        default:
            return Fail(L"a value has an unknown type");
    }
}

// Whether a saved value holds a reference, itself or in an array.
bool HasRef(const json& j) {
    if (!j.is_array() || j.empty() || !j[0].is_number_integer()) return false;
    const int t = j[0].get<int>();
    if (t == ovRef) return true;
    if (t == ovArray && j.size() > 1 && j[1].is_array())
        for (const json& e : j[1])
            if (HasRef(e)) return true;
    return false;
}

void Reader::LoadSource(ParamItem* p, const json& j) {
    const std::wstring kind = String(j, "kind");
    if (kind == L"fcurve") {
        FCurveItem* c = AddParamCurve(p, static_cast<int>(Integer(j, "type", ovStandardFCurve)));
        if (!c) {
            Fail(L"a curve has an unknown type");
            return;
        }
        c->interpolation = static_cast<int>(Integer(j, "interpolation", ovCubicInterpolation));
        for (const json& k : Array(j, "keys")) {
            if (!k.is_array() || k.size() != 9) {
                Fail(L"a curve key is malformed");
                return;
            }
            CurveKey key;
            if (!ReadNum(k[0], key.time) || !ReadNum(k[1], key.value) || !ReadNum(k[3], key.leftX) ||
                !ReadNum(k[4], key.leftY) || !ReadNum(k[5], key.rightX) || !ReadNum(k[6], key.rightY) ||
                !k[2].is_number_integer() || !k[7].is_boolean() || !k[8].is_number_integer()) {
                Fail(L"a curve key is malformed");
                return;
            }
            if (!std::isfinite(key.time)) {
                Fail(L"a curve key is malformed");
                return;
            }
            key.interpolation = k[2].get<int>();
            key.autoTangents = k[7].get<bool>();
            key.constraints = k[8].get<int>();
            key.serial = c->nextSerial++;
            if (!c->keys.empty() && !(key.time > c->keys.back().time)) {
                Fail(L"the keys of a curve are out of order");
                return;
            }
            c->keys.push_back(key);
        }
        c->tangentsDirty = true;
        c->FixTangents();
    } else if (kind == L"expression") {
        std::wstring error;
        if (!SetParamExpression(p, String(j, "text"), error)) Fail(L"an expression does not parse");
    } else {
        Fail(L"a parameter source is of an unknown kind");
    }
}

void Reader::LoadParam(ParamItem* p, const json& j) {
    const long caps = Integer(j, "caps", p->caps);
    if (caps >= 0 && caps <= 0x7FFFFFFF) p->caps = static_cast<int>(caps);
    CValue v;
    for (const char* key : {"min", "max", "smin", "smax"}) {
        v = CValue();
        if (const json* f = Field(j, key)) ValueOf(*f, v, false);
        CValue& slot =
            key[0] == 'm' ? (key[1] == 'i' ? p->min : p->max) : (key[2] == 'i' ? p->smin : p->smax);
        slot = v;
    }
    p->label = String(j, "label");
    p->description = String(j, "description");
    p->def = CValue();
    if (const json* f = Field(j, "default")) {
        if (HasRef(*f)) m_pending.push_back({p->id, PendingRef::Default, L"", 0, *f});
        ValueOf(*f, v, true);
        p->def = v;
    }
    p->value = CValue();
    if (const json* f = Field(j, "value")) {
        if (HasRef(*f)) m_pending.push_back({p->id, PendingRef::Value, L"", 0, *f});
        ValueOf(*f, v, true);
        p->value = v;  // as saved, without conversion or clamping
    }
    if (const json* sub = Field(j, "params")) LoadParams(p, p->params, *sub);
    if (const json* grid = Field(j, "grid")) {
        GridItem* g = nullptr;
        for (auto& o : p->owned)
            if (auto* gi = dynamic_cast<GridItem*>(o.get())) g = gi;
        if (!g) g = p->Own(std::make_unique<GridItem>());
        const long rows = Integer(*grid, "rows", 0), cols = Integer(*grid, "cols", 0);
        const json& data = Array(*grid, "data");
        if (!GridItem::Fits(rows, cols) ||
            data.size() != static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols)) {
            Fail(L"a grid is malformed");
            return;
        }
        g->rows = rows;
        g->cols = cols;
        g->labels.clear();
        for (const json& l : Array(*grid, "labels"))
            g->labels.push_back(l.is_string() ? Wide(l.get<std::string>()) : L"");
        g->labels.resize(static_cast<std::size_t>(cols));
        g->data.assign(static_cast<std::size_t>(rows * cols), CValue());
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (HasRef(data[i])) m_pending.push_back({g->id, PendingRef::GridCell, L"", i, data[i]});
            ValueOf(data[i], g->data[i], true);
        }
    }
    if (const json* src = Field(j, "source")) LoadSource(p, *src);
}

// Parameters in the saved order: those that exist already (made with their owner) take the
// saved state, the others are made, and any that the file does not list go away.
void Reader::LoadParams(Item* owner, std::vector<ParamItem*>& params, const json& list) {
    if (!list.is_array()) {
        Fail(L"a parameter list is malformed");
        return;
    }
    std::vector<ParamItem*> ordered;
    for (const json& j : list) {
        std::wstring name;
        const long type = Integer(j, "type", -1);
        if (!GetString(j, "name", name) || !KnownValueType(type)) {
            Fail(L"a parameter is malformed");
            return;
        }
        // Two entries of one name would both land on one parameter, the second undoing what
        // the first set up (and what references were waiting for).
        if (std::any_of(ordered.begin(), ordered.end(),
                        [&](const ParamItem* q) { return q->name == name; })) {
            Fail(L"the parameter \"" + name + L"\" is listed twice");
            return;
        }
        ParamItem* p = nullptr;
        for (ParamItem* q : params)
            if (q->name == name) p = q;
        if (!p) p = owner->Own(std::make_unique<ParamItem>(name, static_cast<ovValueType>(type)));
        p->type = static_cast<ovValueType>(type);
        ordered.push_back(p);
        LoadParam(p, j);
    }
    std::vector<ParamItem*> extra;
    for (ParamItem* q : params)
        if (std::find(ordered.begin(), ordered.end(), q) == ordered.end()) extra.push_back(q);
    params = ordered;
    for (ParamItem* q : extra) owner->Disown(q);
}

void Reader::LoadAttributes(Item* item, const json& j) {
    if (!j.is_object()) return;
    for (auto it = j.begin(); it != j.end(); ++it) {
        const std::wstring key = Wide(it.key());
        if (HasRef(it.value())) m_pending.push_back({item->id, PendingRef::Attribute, key, 0, it.value()});
        CValue v;
        ValueOf(it.value(), v, true);
        item->attributes[key] = v;
    }
}

void Reader::LoadProperty(PropertyItem* p, const json& j) {
    LoadParams(p, p->params, Array(j, "params"));
    std::wstring blob;
    if (GetString(j, "blob", blob)) {
        if (!FromBase64(Utf8(blob), p->blob)) Fail(L"a blob is malformed");
        p->blobSet = Bool(j, "blobSet", !p->blob.empty());
    }
    if (const json* a = Field(j, "attributes")) LoadAttributes(p, *a);
}

void Reader::LoadProperties(Item* owner, std::vector<PropertyItem*>* list, const json& props) {
    std::vector<PropertyItem*> existing;
    if (list) {
        existing = *list;
    } else {
        for (auto& o : owner->owned)
            if (auto* p = dynamic_cast<PropertyItem*>(o.get())) existing.push_back(p);
    }
    std::vector<PropertyItem*> ordered;
    for (const json& j : props) {
        std::wstring type, name;
        if (!GetString(j, "type", type) || !GetString(j, "name", name)) {
            Fail(L"a property is malformed");
            return;
        }
        const long cls = Integer(j, "class", ovPropertyID);
        if (!ClassIs(cls, ovPropertyID)) {
            Fail(L"a property is malformed");
            return;
        }
        PropertyItem* p = nullptr;
        for (PropertyItem* q : existing)
            if (q->name == name && q->type == type &&
                std::find(ordered.begin(), ordered.end(), q) == ordered.end())
                p = q;
        if (!p) p = owner->Own(std::make_unique<PropertyItem>(type, name, static_cast<int>(cls)));
        ordered.push_back(p);
        LoadProperty(p, j);
    }
    for (PropertyItem* q : existing)
        if (std::find(ordered.begin(), ordered.end(), q) == ordered.end()) owner->Disown(q);
    if (list) *list = ordered;
}

bool Reader::LoadObjects() {
    const json& objects = Array(m_doc, "objects");
    if (objects.empty()) return Fail(L"it lists no objects");
    for (std::size_t i = 0; i < objects.size(); ++i) {
        const json& j = objects[i];
        std::wstring type, name;
        const long cls = Integer(j, "class", -1);
        if (!GetString(j, "type", type) || !GetString(j, "name", name) || !ClassIs(cls, ov3DObjectID) ||
            name.empty())
            return Fail(L"an object is malformed");
        const long parent = Integer(j, "parent", -2);
        if (i == 0) {
            if (parent != -1) return Fail(L"the first object is not the scene root");
            m_objects.push_back(Root());
            continue;
        }
        if (parent < 0 || parent >= static_cast<long>(i)) return Fail(L"an object's parent is missing");
        Object3D* o =
            CreateObject(m_objects[static_cast<std::size_t>(parent)], static_cast<int>(cls), type, name);
        o->name = name;
        m_objects.push_back(o);
    }
    for (std::size_t i = 0; i < objects.size() && m_error.empty(); ++i) LoadDetails(i, objects[i]);
    return m_error.empty();
}

void Reader::LoadDetails(std::size_t index, const json& j) {
    Object3D* o = m_objects[index];
    std::wstring family;
    if (GetString(j, "family", family)) o->family = family;
    if (const json* kine = Field(j, "kine"); kine && o->kine) {
        if (const json* local = Field(*kine, "local"); local && o->kine->local)
            LoadParams(o->kine->local, o->kine->local->params, *local);
        if (const json* global = Field(*kine, "global"); global && o->kine->global)
            LoadParams(o->kine->global, o->kine->global->params, *global);
        for (const json& c : Array(*kine, "constraints")) {
            auto* item = o->kine->Own(std::make_unique<ConstraintItem>(String(c, "name")));
            for (const json& by : Array(c, "constraining"))
                if (by.is_number_integer() && by.get<long>() >= 0 && by.get<std::size_t>() < m_objects.size())
                    item->constraining.push_back(m_objects[by.get<std::size_t>()]->id);
            o->kine->constraints.push_back(item);
        }
    }
    LoadProperties(o, &o->properties, Array(j, "properties"));
    if (const json* prim = Field(j, "primitive")) {
        if (Integer(*prim, "class", ovPrimitiveID) != ovPrimitiveID) {
            Fail(L"a primitive is malformed");
            return;
        }
        if (!o->primitive)
            o->primitive = o->Own(
                std::make_unique<PropertyItem>(String(*prim, "type"), String(*prim, "name"), ovPrimitiveID));
        LoadProperty(static_cast<PropertyItem*>(o->primitive), *prim);
    }
    if (const json* joint = Field(j, "joint")) {
        JointItem* ji = JointOf(o);
        if (!ji) ji = o->Own(std::make_unique<JointItem>());
        LoadParams(ji, ji->params, Array(*joint, "params"));
        const long up = Integer(*joint, "upVector", -1);
        ji->upVector = up >= 0 && up < static_cast<long>(m_objects.size())
                           ? m_objects[static_cast<std::size_t>(up)]->id
                           : 0;
    }
    if (Bool(j, "mixer", false) && o->IsModel()) Model(o->Ref()).AddMixer();
    for (const json& p : Array(j, "controlPoints")) {
        if (!p.is_array() || p.size() != 4) {
            Fail(L"a control point is malformed");
            return;
        }
        double c[4];
        for (std::size_t k = 0; k < 4; ++k)
            if (!ReadNum(p[k], c[k])) {
                Fail(L"a control point is malformed");
                return;
            }
        o->controlPoints.push_back(MATH::CVector4(c[0], c[1], c[2], c[3]));
    }
    if (const json* a = Field(j, "attributes")) LoadAttributes(o, *a);
}

void Reader::LoadOperators() {
    for (const json& j : Array(m_doc, "operators")) {
        std::wstring type;
        if (!GetString(j, "type", type) || type.empty()) {
            Fail(L"an operator is malformed");
            return;
        }
        const bool scripted = Bool(j, "scripted", false);
        auto* op = PendingOperators()->Own(std::make_unique<OperatorItem>(type, scripted));
        std::wstring name;
        if (GetString(j, "name", name) && !name.empty()) op->name = name;
        op->code = String(j, "code");
        op->language = String(j, "language");
        op->alwaysEvaluate = Bool(j, "alwaysEvaluate", false);
        for (const json& g : Array(j, "groups")) {
            auto* gi = op->Own(std::make_unique<PortGroupItem>(String(g, "name")));
            gi->index = static_cast<long>(op->groups.size());
            gi->minInstances = Integer(g, "min", 1);
            gi->maxInstances = Integer(g, "max", 1);
            gi->filter = String(g, "filter");
            gi->scriptFilter = String(g, "scriptFilter");
            gi->flags = Integer(g, "flags", 0);
            op->groups.push_back(gi);
        }
        for (const json& p : Array(j, "ports")) {
            Item* target = Field(p, "target") ? Resolve(*Field(p, "target")) : nullptr;
            if (!target) {
                Fail(L"an operator's port points at nothing");
                return;
            }
            auto* port = op->Own(std::make_unique<PortItem>(String(p, "name")));
            port->output = Bool(p, "output", false);
            port->target = target->id;
            port->group = Integer(p, "group", 0);
            port->index = Integer(p, "index", 0);
            port->flags = Integer(p, "flags", 0);
            op->ports.push_back(port);
        }
        if (Bool(j, "connected", false) && !ConnectOperator(op, static_cast<int>(Integer(j, "mode", 0)))) {
            Fail(L"an operator cannot be connected");
            return;
        }
    }
}

bool Reader::Load(std::wstring& error) {
    if (String(m_doc, "format") != L"orvscene") {
        error = L"not a scene file";
        return false;
    }
    const long version = Integer(m_doc, "version", 0);
    if (version != kFormatVersion) {
        error = L"its format version " + std::to_wstring(version) + L" is not known";
        return false;
    }
    if (NestingDepth(m_doc, kMaxNesting) > kMaxNesting) {
        error = L"it nests deeper than " + std::to_wstring(kMaxNesting) + L" levels";
        return false;
    }
    if (LoadObjects()) LoadProperties(Project(), nullptr, Array(m_doc, "project"));
    // References in values, now that every item exists.
    for (const PendingRef& r : m_pending) {
        Item* it = TheStore().Resolve(r.item);
        if (!it) continue;
        CValue v;
        ValueOf(r.value, v, false);
        switch (r.where) {
            case PendingRef::Value:
                static_cast<ParamItem*>(it)->value = v;
                break;
            case PendingRef::Default:
                static_cast<ParamItem*>(it)->def = v;
                break;
            case PendingRef::Attribute:
                it->attributes[r.key] = v;
                break;
            case PendingRef::GridCell: {
                // The grid may have been shaped again after the cell was noted.
                std::vector<CValue>& cells = static_cast<GridItem*>(it)->data;
                if (r.cell < cells.size()) cells[r.cell] = v;
                break;
            }
        }
    }
    if (m_error.empty()) LoadOperators();
    if (m_error.empty()) {
        std::vector<std::uint64_t>& sel = TheHost().scene->selection;
        for (const json& r : Array(m_doc, "selection"))
            if (Item* it = Resolve(r))
                if (std::find(sel.begin(), sel.end(), it->id) == sel.end()) sel.push_back(it->id);
    }
    if (!m_error.empty()) {
        error = m_error;
        return false;
    }
    return true;
}

std::wstring WidePath(const std::string& path) { return CString(path.c_str()).GetWideString(); }

// Arrays of plain values stand on one line, and so do typed values holding such an array (a
// vector); a list of keys has one key per line.
bool OnOneLine(const json& j) {
    if (!j.is_array()) return !j.is_object();
    const auto plain = [](const json& x) { return !x.is_object() && !x.is_array(); };
    if (std::all_of(j.begin(), j.end(), plain)) return true;
    return j.size() == 2 && plain(j[0]) && j[1].is_array() && std::all_of(j[1].begin(), j[1].end(), plain);
}

void Print(const json& j, std::string& out, int depth) {
    const auto indent = [&](int d) { out.append(static_cast<std::size_t>(d), '\t'); };
    if (j.is_object() && !j.empty()) {
        out += "{\n";
        bool first = true;
        for (auto it = j.begin(); it != j.end(); ++it) {
            if (!first) out += ",\n";
            first = false;
            indent(depth + 1);
            out += json(it.key()).dump(-1, ' ', false, json::error_handler_t::replace) + ": ";
            Print(it.value(), out, depth + 1);
        }
        out += "\n";
        indent(depth);
        out += "}";
    } else if (j.is_array() && !j.empty() && !OnOneLine(j)) {
        out += "[\n";
        for (std::size_t i = 0; i < j.size(); ++i) {
            if (i) out += ",\n";
            indent(depth + 1);
            Print(j[i], out, depth + 1);
        }
        out += "\n";
        indent(depth);
        out += "]";
    } else if (j.is_array() && !j.empty()) {
        out += "[";
        for (std::size_t i = 0; i < j.size(); ++i) {
            if (i) out += ", ";
            Print(j[i], out, depth);
        }
        out += "]";
    } else {
        out += j.dump(-1, ' ', false, json::error_handler_t::replace);
    }
}

// The delete hooks for an item and all it owns, owned items first, as a deletion runs them.
void RunDeleteHooks(Item* item) {
    for (auto& o : item->owned) RunDeleteHooks(o.get());
    for (auto& hook : TheHost().deleteHooks) hook(item);
}

std::string SceneText() {
    Writer w;
    std::string out;
    Print(w.Save(), out, 0);
    return out + "\n";
}

}  // namespace

void NewScene() {
    TermAllOperators();
    ResetScene();
    FireSceneEvent(L"MyNewScene_OnEvent");
}

bool SaveScene(const std::string& path, std::wstring& error) {
    error.clear();
    const std::string text = SceneText();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        error = L"Cannot write the scene file \"" + WidePath(path) + L"\".";
        return false;
    }
    out << text;
    out.close();
    if (!out) {
        error = L"Cannot write the scene file \"" + WidePath(path) + L"\".";
        return false;
    }
    return true;
}

bool OpenScene(const std::string& path, std::wstring& error) {
    error.clear();
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = L"Cannot read the scene file \"" + WidePath(path) + L"\".";
        return false;
    }
    std::stringstream buffer;
    buffer << in.rdbuf();
    const json doc = json::parse(buffer.str(), nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        error = L"The file \"" + WidePath(path) + L"\" is not a scene file.";
        return false;
    }
    // Build the new scene beside the old one, which stays if the file turns out damaged.
    Host& host = TheHost();
    std::unique_ptr<Scene> old = std::move(host.scene);
    host.scene = std::make_unique<Scene>();
    std::wstring why;
    Reader reader(doc);
    const bool ok = reader.Load(why);
    std::unique_ptr<Scene> fresh = std::move(host.scene);
    if (!ok) {
        host.scene = std::move(fresh);
        TermAllOperators();
        host.scene = std::move(old);
        fresh.reset();
        ++host.scene->revision;
        error = why == L"not a scene file"
                    ? L"The file \"" + WidePath(path) + L"\" is not a scene file."
                    : L"The scene file \"" + WidePath(path) + L"\" cannot be opened: " + why + L".";
        return false;
    }
    // The old scene goes as ResetScene drops one: its operators and plug-in properties hear
    // their _Term.
    host.scene = std::move(old);
    TermAllOperators();
    RunDeleteHooks(host.scene->root.get());
    host.scene = std::move(fresh);
    old.reset();
    host.uiRoot.reset();
    ++host.scene->revision;
    FireSceneEvent(L"MyOpenScene_OnEvent");
    return true;
}

}  // namespace orvhost

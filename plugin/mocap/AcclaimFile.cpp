#include "mocap/AcclaimFile.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

const wchar_t* const ASF_INVALID = L"ASF file is invalid.";
const wchar_t* const AMC_INVALID = L"AMC file is invalid";

bool startsWithColon(const ORV::CString& token) { return !token.IsEmpty() && token[0] == L':'; }

// Channel code of a word, or AC_END. Bones also take "l", which lands in the Z rotation.
int channelCode(const ORV::CString& word, bool allowLength) {
    static const wchar_t* const words[6] = {L"tx", L"ty", L"tz", L"rx", L"ry", L"rz"};
    for (int c = 0; c < 6; ++c) {
        if (word.IsEqualNoCase(ORV::CString(words[c]))) return c;
    }
    if (allowLength && word.IsEqualNoCase(ORV::CString(L"l"))) return AC_RZ;
    return AC_END;
}

void parseError(const ORV::CString& name) {
    app.LogMessage(ORV::CString(L"Parse error: could not find ") + name + L".", 4);
}

}  // namespace

AcclaimFile::~AcclaimFile() { std::free(text); }

bool AcclaimFile::readHierarchy(const ORV::CString& path) {
    InputStream stream(path);
    if (!stream.buffer) {
        app.LogMessage(ASF_INVALID, 4);
        return false;
    }
    return readHierarchy(stream);
}

void AcclaimFile::readChannels(InputStream& stream, int* dof, bool allowLength) {
    int count = 0;
    ORV::CString word;
    for (;;) {
        stream >> word;
        const int code = channelCode(word, allowLength);
        if (code == AC_END) {
            stream.resetToPrev();
            break;
        }
        // Seven codes fill the list without its closing mark; the reader stops after seven.
        if (count < 7) dof[count++] = code;
    }
    for (int c = count; c < 7; ++c) dof[c] = AC_END;
}

bool AcclaimFile::readHierarchy(InputStream& stream) {
    // A second read starts from a clean skeleton.
    for (int b = 0; b < boneCount; ++b) bones[b] = AcclaimBone();
    boneCount = 0;
    degrees = false;
    longestBone = 0.0;
    std::free(text);
    text = nullptr;
    textSize = 0;

    bool hierarchyRead = false;
    bool ok = true;
    bool tooMany = false;
    AcclaimBone scratch;  // takes the fields of a block that comes before any bone
    ORV::CString token;
    while (ok && stream.findDelimiters(L":")) {
        ORV::CString keyword;
        stream >> keyword;
        if (keyword == L":units") {
            for (;;) {
                stream >> token;
                if (token.IsEmpty()) break;
                if (startsWithColon(token)) {
                    stream.resetToPrev();
                    break;
                }
                if (token == L"angle") {
                    stream >> token;
                    if (token == L"deg") degrees = true;
                }
            }
        } else if (keyword == L":root") {
            if (boneCount >= MAX_BONES) {
                ok = false;
                tooMany = true;
                break;
            }
            AcclaimBone& root = bones[boneCount++];
            root.name = L"root";
            for (;;) {
                stream >> token;
                if (token.IsEmpty()) break;
                if (startsWithColon(token)) {
                    stream.resetToPrev();
                    break;
                }
                if (token == L"order") {
                    readChannels(stream, root.dof, false);
                } else if (token == L"axis") {
                    stream >> root.order;
                } else if (token == L"position") {
                    stream >> root.direction;
                } else if (token == L"orientation") {
                    stream >> root.axis;
                }
            }
        } else if (keyword == L":bonedata") {
            for (;;) {
                stream >> token;
                if (token != L"begin") {
                    stream.resetToPrev();
                    break;
                }
                for (;;) {
                    stream >> token;
                    if (token.IsEmpty() || token == L"end") break;
                    if (token == L"id") {
                        if (boneCount >= MAX_BONES) {
                            ok = false;
                            tooMany = true;
                            break;
                        }
                        ++boneCount;
                        int id = 0;
                        stream >> id;  // the bones stand in file order; the number is not kept
                        continue;
                    }
                    AcclaimBone& bone = boneCount > 0 ? bones[boneCount - 1] : scratch;
                    if (token == L"name") {
                        stream >> bone.name;
                    } else if (token == L"direction") {
                        stream >> bone.direction;
                    } else if (token == L"length") {
                        stream >> bone.length;
                        if (bone.length > longestBone) longestBone = bone.length;
                    } else if (token == L"axis") {
                        stream >> bone.axis >> bone.order;
                    } else if (token == L"dof") {
                        readChannels(stream, bone.dof, true);
                    }
                }
                if (!ok || stream.atEnd()) break;
            }
        } else if (keyword == L":hierarchy") {
            if (!readHierarchySection(stream)) {
                ok = false;
                break;
            }
            hierarchyRead = true;
        }
        // Any other section is skipped by the next search for ":".
    }

    // A file without its hierarchy, or with a hierarchy cut before its "end", has been cut
    // short. More bones than the table holds is beyond what the reader takes.
    if (tooMany || (ok && (boneCount == 0 || !hierarchyRead))) {
        app.LogMessage(ASF_INVALID, 4);
        ok = false;
    }
    if (!ok) {
        for (int b = 0; b < boneCount; ++b) bones[b] = AcclaimBone();
        boneCount = 0;
        longestBone = 0.0;
        return false;
    }

    computeRestPoses();

    // The text goes onto the reference model with it.
    const long size = static_cast<long>(stream.end - stream.buffer);
    text = static_cast<char*>(std::malloc(static_cast<size_t>(size) + 1));
    if (text) {
        std::memcpy(text, stream.buffer, static_cast<size_t>(size));
        text[size] = '\0';
        textSize = static_cast<int>(size);
    }
    return true;
}

bool AcclaimFile::readHierarchySection(InputStream& stream) {
    ORV::CString token;
    stream >> token;  // "begin"
    for (;;) {
        ORV::CString parentName;
        stream >> parentName;
        if (parentName == L"end") return true;
        // The file ends inside the section: it was cut short.
        if (parentName.IsEmpty()) {
            app.LogMessage(ASF_INVALID, 4);
            return false;
        }
        const int parent = findBone(parentName);
        if (parent < 0) {
            parseError(parentName);
            return false;
        }
        while (!stream.isCR()) {
            ORV::CString childName;
            stream >> childName;
            if (childName.IsEmpty()) break;
            const int child = findBone(childName);
            if (child < 0) {
                parseError(childName);
                return false;
            }
            // Frames are evaluated in bone order, so a parent must stand before its children.
            if (child <= parent) {
                app.LogMessage(ORV::CString(L"Parse error: ") + childName + L" is listed before its parent " +
                                   parentName + L".",
                               4);
                return false;
            }
            bones[child].parent = parent;
        }
        stream >> token;
        if (token == L":skin") {
            stream >> token;
        } else {
            stream.resetToPrev();
        }
    }
}

void AcclaimFile::computeRestPoses() {
    const double f = degrees ? DEGREES : 1.0;
    for (int b = 0; b < boneCount; ++b) {
        AcclaimBone& bone = bones[b];
        ORV::MATH::CVector3 translation;
        ORV::MATH::CRotation parentInverse;
        if (bone.parent >= 0) {
            const AcclaimBone& parent = bones[bone.parent];
            ORV::MATH::CTransformation inverse;
            inverse.Invert(parent.global);
            parentInverse = inverse.GetRotation();
            // The bone starts where its parent ends: v in global terms, offset in the parent's.
            ORV::MATH::CVector3 v;
            v.Scale(parent.length, parent.direction);
            bone.offset.MulByRotation(v, parentInverse);
            translation.Add(v, parent.global.GetTranslation());
        } else if (b == 0) {
            // The root stands at its "position", which its direction field holds.
            translation = bone.direction;
            bone.offset = translation;
        }
        ORV::MATH::CTransformation global;
        global.SetRotationFromXYZAnglesValues(bone.axis.x * f, bone.axis.y * f, bone.axis.z * f);
        global.SetTranslation(translation);
        bone.rotation.Mul(global.GetRotation(), parentInverse);
        bone.global = global;
    }
}

int AcclaimFile::findBone(const ORV::CString& name) const {
    for (int b = 0; b < boneCount; ++b) {
        if (bones[b].name == name) return b;
    }
    return -1;
}

void AcclaimFile::extractInitData(InputStream& stream, int& count) {
    char* const current = stream.current;
    char* const previous = stream.previous;
    count = 0;
    if (!stream.buffer) return;
    // The tokens of a string read, compared in place: a whole file of them needs no strings.
    for (;;) {
        stream.skipWhitespace();
        if (stream.atEnd()) break;
        const char* const start = stream.current;
        while (stream.current < stream.end && *stream.current != '#' &&
               !std::isspace(static_cast<unsigned char>(*stream.current)))
            ++stream.current;
        if (stream.current - start == 4 && std::memcmp(start, "root", 4) == 0) ++count;
    }
    stream.current = current;
    stream.previous = previous;
}

bool AcclaimFile::readMotion(const ORV::CString& path, MocapData* data, int step) {
    if (step < 1) step = 1;
    InputStream stream(path);
    if (!stream.buffer) {
        app.LogMessage(AMC_INVALID, 4);
        return false;
    }
    if (!data || boneCount <= 0) return false;

    // The header: the second word says whether the angles are degrees.
    ORV::CString word;
    stream >> word >> word;
    const double f = (word == L":DEGREES") ? DEGREES : 1.0;

    int count = 0;
    extractInitData(stream, count);
    // No "root" at all: nothing in the file is motion for any skeleton.
    if (count == 0) {
        app.LogMessage(AMC_INVALID, 4);
        return false;
    }
    const int frameCount = count / step + 1;

    // Every node starts with identity frames; frames the file does not reach stay so.
    if (!data->allocate(boneCount)) return false;
    for (int b = 0; b < boneCount; ++b) {
        MocapNode& node = data->nodes[b];
        node.name = bones[b].name;
        node.parent = b == 0 ? -1 : bones[b].parent;
        node.frames = new (std::nothrow) DrvTransform[frameCount];
        if (!node.frames) {
            data->allocate(0);
            return false;
        }
        node.frameCount = frameCount;
    }

    // The rest pose of each bone, which fills every frame before the file's values.
    std::vector<DrvTransform> rest(static_cast<size_t>(boneCount));
    for (int b = 0; b < boneCount; ++b) {
        ORV::MATH::CTransformation t;
        t.SetRotation(bones[b].rotation);
        t.SetTranslation(bones[b].offset);
        rest[static_cast<size_t>(b)].Set(t);
    }

    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutVisible(true);
    bar.PutMaximum(frameCount);
    bar.PutStep(1);
    bar.PutCaption(L"Reading AMC Samples ...");

    // The bone at each position of a frame, as the first frame lists them.
    std::vector<int> listed(static_cast<size_t>(boneCount), -1);
    ORV::CString name;
    ORV::MATH::CRotation motion, rotation;
    for (int k = 0; k < frameCount; ++k) {
        // Only white space left is the end: the frames not reached stay at identity.
        stream.skipWhitespace();
        if (stream.atEnd()) break;
        // The frame number; frames between kept ones are skipped up to the next kept "root".
        int number = 0;
        stream >> number;
        if (number % step != 1) {
            int roots = 0;
            while (roots < step && !stream.atEnd()) {
                stream >> name;
                if (name == L"root") ++roots;
            }
            if (roots == step) stream.resetToPrev();
            bar.Increment(1);
        }

        for (int b = 0; b < boneCount; ++b) data->nodes[b].frames[k] = rest[static_cast<size_t>(b)];

        for (int p = 0; p < boneCount; ++p) {
            stream >> name;
            // Frames are expected to list the bones as the first one does; a frame that differs
            // is looked up by name, so nothing lands on the wrong bone.
            int b = listed[static_cast<size_t>(p)];
            if (b < 0 || bones[b].name != name) b = findBone(name);
            if (b < 0) {
                stream.resetToPrev();
                break;
            }
            if (k == 0) listed[static_cast<size_t>(p)] = b;

            const AcclaimBone& bone = bones[b];
            double values[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
            for (int c = 0; c < 7 && bone.dof[c] != AC_END; ++c) stream >> values[bone.dof[c]];

            motion.SetFromXYZAngles(values[AC_RX] * f, values[AC_RY] * f, values[AC_RZ] * f);
            rotation.Mul(motion, bone.rotation);
            ORV::MATH::CTransformation t;
            t.SetRotation(rotation);
            t.SetTranslationFromValues(values[AC_TX] + bone.offset.x, values[AC_TY] + bone.offset.y,
                                       values[AC_TZ] + bone.offset.z);
            data->nodes[b].frames[k].Set(t);
        }
    }
    return true;
}

ORV::Model AcclaimFile::createModel() {
    if (boneCount <= 0) return ORV::Model();

    // The model and its null.
    ORV::Model root = app.GetActiveSceneRoot();
    ORV::Model model;
    root.AddModel(ORV::CRefArray(), MODEL_NAME, model);
    ORV::Null null;
    model.AddNull(NULL_NAME, null);

    const double cubeSize = 0.1 * longestBone;

    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutVisible(true);
    bar.PutMaximum(2 * boneCount);
    bar.PutStep(1);
    bar.PutCaption(L"Creating Mocap Reference Model ...");

    // One cube per bone, at the bone's rest pose.
    for (int b = 0; b < boneCount; ++b) {
        bar.Increment(1);
        ORV::X3DObject cube;
        root.AddPrimitive(L"Cube", L"Cube", cube);
        cube.PutParameterValue(L"length", cubeSize);
        ORV::Property display = cube.AddProperty(L"Display Property", false, L"Display");
        display.PutParameterValue(L"wirecol", 384);
        cube.PutName(bones[b].name);
        bones[b].object = cube;
        cube.GetKinematics().GetGlobal().PutTransform(bones[b].global);
    }

    // The hierarchy: the root cube under the null, each further cube under its parent's cube,
    // tied by a connection line, with any expression on its position cleared. A bone that the
    // hierarchy never named goes under the null, so that nothing stays outside the model.
    null.AddChild(bones[0].object);
    bar.Increment(1);
    ORV::CValue result;
    for (int b = 1; b < boneCount; ++b) {
        bar.Increment(1);
        AcclaimBone& bone = bones[b];
        if (bone.parent < 0) {
            null.AddChild(bone.object);
            continue;
        }
        attachReferenceCube(bones[bone.parent].object, bone.object);
    }

    app.ExecuteCommand(L"FrameAll", ORV::CValueArray(), result);

    model.AddProperty(L"CustomProperty", false, MocapData::PROPERTY_NAME);
    ORV::Property blob;
    model.AddProperty(L"UserDataBlob", false, PROPERTY_NAME, blob);
    ORV::UserDataBlob(blob).PutValue(reinterpret_cast<const unsigned char*>(text ? text : ""),
                                     static_cast<unsigned int>(text ? textSize : 0));
    modelBuilt = true;
    return model;
}

void AcclaimFile::pose(MocapData* data, int frame) {
    if (!data || !data->nodes || data->nodeCount <= 0) return;
    if (frame < 0 || frame >= data->nodes[0].frameCount) return;
    const int count = boneCount < data->nodeCount ? boneCount : data->nodeCount;
    for (int b = 0; b < count; ++b) {
        const MocapNode& node = data->nodes[b];
        if (!bones[b].object.IsValid() || !node.frames || frame >= node.frameCount) continue;
        bones[b].object.GetKinematics().GetLocal().PutTransform(node.frames[frame].GetCTransformation());
    }
}

MocapData* AcclaimFile::extractMocapData(const ORV::CString& asfPath, const ORV::CString& amcPath, int step) {
    // The bone table is large; it lives on the heap, not on the caller's stack.
    AcclaimFile* file = new (std::nothrow) AcclaimFile;
    if (!file) return nullptr;
    MocapData* data = new (std::nothrow) MocapData;
    if (!data || !file->readHierarchy(asfPath) || !file->readMotion(amcPath, data, step)) {
        delete data;
        delete file;
        return nullptr;
    }
    delete file;
    return data;
}

}  // namespace ZUK

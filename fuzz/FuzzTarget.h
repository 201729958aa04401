// One entry function per file reader, fed arbitrary bytes. The same source builds two ways:
// as a libFuzzer program (TROVO_FUZZ_LIBFUZZER, clang) where the entry is
// LLVMFuzzerTestOneInput, and into the replay test of the normal build, where every entry
// registers itself under its name so that one program can run the checked-in corpora through
// all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace ZUK {
class MocapData;
}

namespace trovofuzz {

using Entry = int (*)(const std::uint8_t* data, std::size_t size);

// The registered entries by target name (replay build only; empty under libFuzzer).
std::map<std::string, Entry>& Entries();
bool Register(const char* name, Entry entry);

// Puts the host in the state every entry expects (once per process): no log kept in memory,
// dialogs answered by their defaults.
void Prepare();

// Writes the bytes to this process's scratch file `name` (in a private folder made once) and
// answers its path.
std::string ScratchFile(const std::string& name, const std::uint8_t* data, std::size_t size);
// The private scratch folder, made on first use.
const std::string& ScratchDir();

// Points the user location at a scratch add-on root (whose Structures/ folder is made) and the
// factory location at the shipped data or at nothing; answers the scratch Structures/ folder.
// Every call sets the locations again, since the entries share one process in the replay.
std::string UseScratchLocations(bool withFactory);

// Splits an input into a 32-bit seed (its first four bytes, zero when shorter) that drives
// the order of the reads, and the rest, which is the file.
std::uint32_t TakeSeed(const std::uint8_t*& data, std::size_t& size);

// What an import does with a capture that reads: the global transforms of its first and last
// frame.
void PoseFirstAndLastFrame(ZUK::MocapData& mocap);

}  // namespace trovofuzz

#ifdef TROVO_FUZZ_LIBFUZZER
#define TROVO_FUZZ_TARGET(name) \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
#else
#define TROVO_FUZZ_TARGET(name)                                                                       \
    static int TrovoFuzzEntry_##name(const std::uint8_t* data, std::size_t size);                     \
    static const bool trovoFuzzRegistered_##name = trovofuzz::Register(#name, TrovoFuzzEntry_##name); \
    static int TrovoFuzzEntry_##name(const std::uint8_t* data, std::size_t size)
#endif

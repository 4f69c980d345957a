#pragma once
// The VST 2.4 binary interface as hosts see it: the AEffect record shared by
// host and plug-in, the calling convention, and the opcodes and constants this
// project uses. Written from the published facts of the interface; no part of
// any SDK is reproduced.
#include <cstdint>

#if defined(_WIN32) && !defined(_WIN64)
#define KELM_VSTCALLBACK __cdecl
#else
#define KELM_VSTCALLBACK
#endif

namespace kelm {
namespace vst2 {

typedef int32_t VstInt32;
typedef intptr_t VstIntPtr;

struct AEffect;

typedef VstIntPtr(KELM_VSTCALLBACK* AudioMasterCallback)(AEffect* effect, VstInt32 opcode, VstInt32 index,
                                                          VstIntPtr value, void* ptr, float opt);
typedef VstIntPtr(KELM_VSTCALLBACK* AEffectDispatcherProc)(AEffect* effect, VstInt32 opcode, VstInt32 index,
                                                            VstIntPtr value, void* ptr, float opt);
typedef void(KELM_VSTCALLBACK* AEffectProcessProc)(AEffect* effect, float** inputs, float** outputs,
                                                   VstInt32 sampleFrames);
typedef void(KELM_VSTCALLBACK* AEffectProcessDoubleProc)(AEffect* effect, double** inputs, double** outputs,
                                                         VstInt32 sampleFrames);
typedef void(KELM_VSTCALLBACK* AEffectSetParameterProc)(AEffect* effect, VstInt32 index, float parameter);
typedef float(KELM_VSTCALLBACK* AEffectGetParameterProc)(AEffect* effect, VstInt32 index);

// The one object shared by host and plug-in; 144 bytes on 32-bit targets, 192 on 64-bit.
struct AEffect {
    VstInt32 magic;
    AEffectDispatcherProc dispatcher;
    AEffectProcessProc process;
    AEffectSetParameterProc setParameter;
    AEffectGetParameterProc getParameter;
    VstInt32 numPrograms;
    VstInt32 numParams;
    VstInt32 numInputs;
    VstInt32 numOutputs;
    VstInt32 flags;
    VstIntPtr resvd1;
    VstIntPtr resvd2;
    VstInt32 initialDelay;
    VstInt32 realQualities;
    VstInt32 offQualities;
    float ioRatio;
    void* object;  // the plug-in's instance
    void* user;
    VstInt32 uniqueID;
    VstInt32 version;
    AEffectProcessProc processReplacing;
    AEffectProcessDoubleProc processDoubleReplacing;
    char future[56];
};

#define KELM_FOURCC(a, b, c, d) \
    ((static_cast<VstInt32>(a) << 24) | (static_cast<VstInt32>(b) << 16) | (static_cast<VstInt32>(c) << 8) | static_cast<VstInt32>(d))

enum : VstInt32 { kEffectMagic = KELM_FOURCC('V', 's', 't', 'P') };

enum EffectFlags : VstInt32 {
    effFlagsHasEditor = 1 << 0,
    effFlagsCanReplacing = 1 << 4,
    effFlagsProgramChunks = 1 << 5,
    effFlagsIsSynth = 1 << 8,
    effFlagsNoSoundInStop = 1 << 9,
    effFlagsCanDoubleReplacing = 1 << 12
};

// Host to plug-in.
enum DispatcherOpcodes : VstInt32 {
    effOpen = 0,
    effClose = 1,
    effSetProgram = 2,
    effGetProgram = 3,
    effSetProgramName = 4,
    effGetProgramName = 5,
    effGetParamLabel = 6,
    effGetParamDisplay = 7,
    effGetParamName = 8,
    effSetSampleRate = 10,
    effSetBlockSize = 11,
    effMainsChanged = 12,
    effEditGetRect = 13,
    effEditOpen = 14,
    effEditClose = 15,
    effEditIdle = 19,
    effGetChunk = 23,
    effSetChunk = 24,
    effProcessEvents = 25,
    effCanBeAutomated = 26,
    effString2Parameter = 27,
    effGetProgramNameIndexed = 29,
    effConnectInput = 31,
    effConnectOutput = 32,
    effGetInputProperties = 33,
    effGetOutputProperties = 34,
    effGetPlugCategory = 35,
    effSetSpeakerArrangement = 42,
    effSetBlockSizeAndSampleRate = 43,
    effSetBypass = 44,
    effGetEffectName = 45,
    effGetVendorString = 47,
    effGetProductString = 48,
    effGetVendorVersion = 49,
    effVendorSpecific = 50,
    effCanDo = 51,
    effGetTailSize = 52,
    effGetParameterProperties = 56,
    effGetVstVersion = 58,
    effStartProcess = 71,
    effStopProcess = 72,
    effSetProcessPrecision = 77
};

// Plug-in to host.
enum AudioMasterOpcodes : VstInt32 {
    audioMasterAutomate = 0,
    audioMasterVersion = 1,
    audioMasterCurrentId = 2,
    audioMasterIdle = 3,
    audioMasterPinConnected = 4,
    audioMasterGetTime = 7,
    audioMasterIOChanged = 13,
    audioMasterSizeWindow = 15,
    audioMasterGetSampleRate = 16,
    audioMasterGetBlockSize = 17,
    audioMasterGetVendorString = 32,
    audioMasterGetProductString = 33,
    audioMasterCanDo = 37,
    audioMasterUpdateDisplay = 42,
    audioMasterBeginEdit = 43,
    audioMasterEndEdit = 44
};

enum : VstInt32 { kPlugCategEffect = 1, kVstVersion = 2400 };

// Character limits, not counting the terminating NUL.
enum : VstInt32 {
    kVstMaxProgNameLen = 24,
    kVstMaxParamStrLen = 8,
    kVstMaxVendorStrLen = 64,
    kVstMaxProductStrLen = 64,
    kVstMaxEffectNameLen = 32
};

struct ERect {
    int16_t top, left, bottom, right;
};

struct VstPinProperties {
    char label[64];
    VstInt32 flags;
    VstInt32 arrangementType;
    char shortLabel[8];
    char future[48];
};

enum : VstInt32 { kVstPinIsActive = 1, kVstPinIsStereo = 2 };

// What a host may know of a parameter beyond its 0..1 value: steps, switches, a long label.
struct VstParameterProperties {
    float stepFloat, smallStepFloat, largeStepFloat;
    char label[64];
    VstInt32 flags, minInteger, maxInteger, stepInteger, largeStepInteger;
    char shortLabel[8];
    int16_t displayIndex, category, numParametersInCategory, reserved;
    char categoryLabel[24];
    char future[16];
};

enum : VstInt32 {
    kVstParameterIsSwitch = 1,
    kVstParameterUsesIntegerMinMax = 2,
    kVstParameterUsesFloatStep = 4,
    kVstParameterUsesIntStep = 8,
    kVstParameterSupportsDisplayIndex = 16,
    kVstParameterCanRamp = 64
};

static_assert(sizeof(void*) != 4 || sizeof(AEffect) == 144, "AEffect must be 144 bytes on 32-bit targets");
static_assert(sizeof(void*) != 8 || sizeof(AEffect) == 192, "AEffect must be 192 bytes on 64-bit targets");
static_assert(sizeof(VstPinProperties) == 128, "VstPinProperties must be 128 bytes");
static_assert(sizeof(VstParameterProperties) == 152, "VstParameterProperties must be 152 bytes");

} // namespace vst2
} // namespace kelm

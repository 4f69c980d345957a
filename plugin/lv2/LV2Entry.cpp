// The LV2 entry point, lv2_descriptor, and the descriptor's functions over LV2Effect for the
// plug-in that lv2Description() describes, with the state interface that keeps its core's
// state in the host's session where it has one.
#include <cstring>
#include <new>
#include <string>

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>

#include "plugin/lv2/LV2Description.h"
#include "plugin/lv2/LV2Effect.h"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

using namespace kelm;

namespace {

LV2Effect* instance(LV2_Handle h) { return static_cast<LV2Effect*>(h); }

const void* featureData(const LV2_Feature* const* features, const char* uri) {
    for (int i = 0; features && features[i]; ++i)
        if (std::strcmp(features[i]->URI, uri) == 0) return features[i]->data;
    return nullptr;
}

// The host's bound on the block length, from the optional options feature: the maximum,
// else the nominal length; 0 when the host offers neither.
int blockLengthOption(const LV2_Feature* const* features, const LV2_URID_Map* map) {
    const auto* options = static_cast<const LV2_Options_Option*>(featureData(features, LV2_OPTIONS__options));
    if (!map || !options) return 0;
    const LV2_URID maxLength = map->map(map->handle, LV2_BUF_SIZE__maxBlockLength);
    const LV2_URID nominalLength = map->map(map->handle, LV2_BUF_SIZE__nominalBlockLength);
    const LV2_URID intType = map->map(map->handle, LV2_ATOM__Int);
    int maximum = 0, nominal = 0;
    for (const LV2_Options_Option* o = options; o->key != 0 || o->value != nullptr; ++o) {
        if (o->type != intType || o->size != sizeof(int32_t) || !o->value) continue;
        const int32_t v = *static_cast<const int32_t*>(o->value);
        if (o->key == maxLength) maximum = v;
        if (o->key == nominalLength) nominal = v;
    }
    return maximum > 0 ? maximum : nominal > 0 ? nominal : 0;
}

LV2_Handle instantiate(const LV2_Descriptor*, double rate, const char*, const LV2_Feature* const* features) {
    const LV2Description& d = lv2Description();
    const auto* map = static_cast<const LV2_URID_Map*>(featureData(features, LV2_URID__map));
    if (!(rate > 0) || (d.stateKey && !map)) return nullptr;  // the state's keys need the map
    try {
        LV2Effect* i = new LV2Effect(d.makeCore(), rate, blockLengthOption(features, map), d.unheardFirstValues);
        if (d.stateKey) {
            i->stateKey = map->map(map->handle, d.stateKey);
            i->stringType = map->map(map->handle, LV2_ATOM__String);
        }
        return i;
    } catch (...) {
        return nullptr;  // the host sees a plug-in that failed to instantiate
    }
}

void connectPort(LV2_Handle h, uint32_t port, void* data) { instance(h)->connectPort(port, data); }

void activate(LV2_Handle h) {
    try {
        instance(h)->activate();
    } catch (...) {
    }
}

void run(LV2_Handle h, uint32_t frames) {
#if defined(__SSE__)
    const unsigned csr = _mm_getcsr();
#endif
    try {
        instance(h)->run(frames);
    } catch (...) {
        // Nothing may pass into a C host: the block stays silent instead.
#if defined(__SSE__)
        _mm_setcsr(csr);
#endif
        instance(h)->silence(frames);
    }
}

void deactivate(LV2_Handle h) {
    try {
        instance(h)->deactivate();
    } catch (...) {
    }
}

void cleanup(LV2_Handle h) { delete instance(h); }

// The state: one string, the core's getState (for Kelm Circuit the document's text with a
// header of the name, path, reload toggle and parameters).
LV2_State_Status save(LV2_Handle h, LV2_State_Store_Function store, LV2_State_Handle handle, uint32_t,
                      const LV2_Feature* const*) {
    try {
        LV2Effect* i = instance(h);
        const std::string state = i->saveState();
        return store(handle, i->stateKey, state.c_str(), state.size() + 1, i->stringType,
                     LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

LV2_State_Status restore(LV2_Handle h, LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle, uint32_t,
                         const LV2_Feature* const*) {
    try {
        LV2Effect* i = instance(h);
        size_t size = 0;
        uint32_t type = 0, flags = 0;
        const void* data = retrieve(handle, i->stateKey, &size, &type, &flags);
        if (!data) return LV2_STATE_ERR_NO_PROPERTY;
        if (type != i->stringType) return LV2_STATE_ERR_BAD_TYPE;
        // A string's size counts its terminating NUL.
        if (size > 0 && static_cast<const char*>(data)[size - 1] == '\0') --size;
        return i->restoreState(data, size) ? LV2_STATE_SUCCESS : LV2_STATE_ERR_UNKNOWN;
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

const LV2_State_Interface stateInterface = {save, restore};

const void* extensionData(const char* uri) {
    const bool hasState = lv2Description().stateKey != nullptr;
    return hasState && std::strcmp(uri, LV2_STATE__interface) == 0 ? &stateInterface : nullptr;
}

} // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    static const LV2_Descriptor descriptor = {lv2Description().uri, instantiate, connectPort, activate, run,
                                              deactivate,           cleanup,     extensionData};
    return index == 0 ? &descriptor : nullptr;
}

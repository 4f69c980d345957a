// The LV2 entry point, lv2_descriptor, and the descriptor's functions over KelmLV2Plugin.
#include <cstring>
#include <new>

#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include "engine/KELMException.h"
#include "plugin/lv2/KelmLV2Plugin.h"
#include "plugin/lv2/KelmLV2Uri.h"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

using namespace kelm;

namespace {

// The host's bound on the block length, from the optional options feature: the maximum,
// else the nominal length; 0 when the host offers neither.
int blockLengthOption(const LV2_Feature* const* features) {
    const LV2_URID_Map* map = nullptr;
    const LV2_Options_Option* options = nullptr;
    for (int i = 0; features && features[i]; ++i) {
        if (std::strcmp(features[i]->URI, LV2_URID__map) == 0) map = static_cast<const LV2_URID_Map*>(features[i]->data);
        if (std::strcmp(features[i]->URI, LV2_OPTIONS__options) == 0)
            options = static_cast<const LV2_Options_Option*>(features[i]->data);
    }
    if (!map || !options) return 0;
    const LV2_URID maxLength = map->map(map->handle, LV2_BUF_SIZE__maxBlockLength);
    const LV2_URID nominalLength = map->map(map->handle, LV2_BUF_SIZE__nominalBlockLength);
    const LV2_URID intType = map->map(map->handle, "http://lv2plug.in/ns/ext/atom#Int");
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
    if (!(rate > 0)) return nullptr;
    try {
        return new KelmLV2Plugin(rate, blockLengthOption(features));
    } catch (...) {
        return nullptr;  // the host sees a plug-in that failed to instantiate
    }
}

KelmLV2Plugin* plugin(LV2_Handle h) { return static_cast<KelmLV2Plugin*>(h); }

void connectPort(LV2_Handle h, uint32_t port, void* data) { plugin(h)->connectPort(port, data); }

void activate(LV2_Handle h) {
    try {
        plugin(h)->activate();
    } catch (...) {
    }
}

void run(LV2_Handle h, uint32_t frames) {
#if defined(__SSE__)
    const unsigned csr = _mm_getcsr();
#endif
    try {
        plugin(h)->run(frames);
    } catch (...) {
        // Nothing may pass into a C host: the block stays silent instead.
#if defined(__SSE__)
        _mm_setcsr(csr);
#endif
        plugin(h)->silence(frames);
    }
}

void deactivate(LV2_Handle h) {
    try {
        plugin(h)->deactivate();
    } catch (...) {
    }
}

void cleanup(LV2_Handle h) { delete plugin(h); }

const void* extensionData(const char*) { return nullptr; }

const LV2_Descriptor descriptor = {kKelmLV2Uri, instantiate, connectPort, activate, run, deactivate, cleanup, extensionData};

} // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) { return index == 0 ? &descriptor : nullptr; }

#pragma once
// A host's URID map and unmap for the LV2 tests, with the features that offer them.
#include <map>
#include <string>
#include <vector>

#include <lv2/urid/urid.h>

namespace kelm {
namespace test {

struct Lv2Urids {
    std::map<std::string, LV2_URID> ids;
    std::vector<std::string> uris;
    LV2_URID_Map map{this, [](LV2_URID_Map_Handle h, const char* uri) -> LV2_URID {
                         Lv2Urids& u = *static_cast<Lv2Urids*>(h);
                         auto it = u.ids.find(uri);
                         if (it != u.ids.end()) return it->second;
                         u.uris.push_back(uri);
                         return u.ids[uri] = static_cast<LV2_URID>(u.uris.size());
                     }};
    LV2_URID_Unmap unmap{this, [](LV2_URID_Unmap_Handle h, LV2_URID id) -> const char* {
                             Lv2Urids& u = *static_cast<Lv2Urids*>(h);
                             return id >= 1 && id <= u.uris.size() ? u.uris[id - 1].c_str() : nullptr;
                         }};
    LV2_Feature mapFeature{LV2_URID__map, &map};
    LV2_Feature unmapFeature{LV2_URID__unmap, &unmap};
    const LV2_Feature* features[3] = {&mapFeature, &unmapFeature, nullptr};
    LV2_URID id(const char* uri) { return map.map(this, uri); }
};

} // namespace test
} // namespace kelm

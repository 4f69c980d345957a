#include "circuit/devices/TubeTypes.h"

namespace kelm {

namespace {
// Built from an initialiser list: a second entry of a key has no effect.
TubeTypes::Parameters fill(std::initializer_list<std::pair<const char*, const char*>> entries) {
    TubeTypes::Parameters p;
    for (auto& e : entries) p.insert({e.first, e.second});
    return p;
}

const TubeTypes::Parameters& t12AX7() {
    static const TubeTypes::Parameters p = fill({{"Vct", "0.0"}, {"Kp", "600.0"}, {"Kvb", "300.0"}, {"mu", "100.0"},
                                                 {"Ex", "1.4"}, {"Kg", "1060.0"}, {"Ex", "1.4"}, {"Vc", "0.53"},
                                                 {"VgkMax", "4.0"}, {"VgkMin", "-8.0"}, {"VpMax", "400.0"},
                                                 {"Igc", "3.14e-4"}, {"N", "3.0"}, {"DeltaVpk", "2"},
                                                 {"DeltaVgk", "0.01"}});
    return p;
}

const TubeTypes::Parameters& t12AY7() {
    static const TubeTypes::Parameters p =
        fill({{"Vct", "0.0"}, {"Ex", "1.113"}, {"Vct", "0.0"}, {"Kp", "409.96"}, {"Kvb", "300.0"}, {"mu", "44.16"},
              {"Ex", "1.4"}, {"Kg", "1192.4"}, {"Vc", "0.53"}, {"VgkMax", "8.0"}, {"VgkMin", "-11.0"},
              {"VpMax", "400.0"}, {"Igc", "3.14e-4"}, {"N", "3.0"}, {"Vct", "0.0"}});
    return p;
}

#define KELM_PENTODE(fn, vct, kp, kvb, mu, ex, kg1, kg2, vc, gmax, gmin, vpmax, dvg, igc, n)                         \
    const TubeTypes::Parameters& fn() {                                                                             \
        static const TubeTypes::Parameters p = [] {                                                                 \
            TubeTypes::Parameters q = fill({{"Vct", vct}, {"Kp", kp}, {"Kvb", kvb}, {"mu", mu}, {"Ex", ex},         \
                                            {"Kg1", kg1}, {"Kg2", kg2}, {"Vc", vc}, {"VgkMax", gmax},               \
                                            {"VgkMin", gmin}, {"VpMax", vpmax}, {"Igc", igc}, {"N", n}});            \
            if (dvg[0]) q.insert({"DeltaVgk", dvg});                                                                \
            return q;                                                                                               \
        }();                                                                                                        \
        return p;                                                                                                   \
    }

KELM_PENTODE(pJJEL34, "0.0", "51.85", "25.4", "11.5", "1.35", "650.2", "6000.0", "0.53", "8.0", "-8.0", "650.0", "",
             "3.14e-4", "3.0")
KELM_PENTODE(p5881, "0.0", "53.86", "14.4", "8.35", "1.484", "2507.1", "4500.0", "0.53", "8.0", "-8.0", "650.0", "",
             "3.14e-4", "3.0")
KELM_PENTODE(pGE6L6GC, "0.0", "30.98", "19.4", "9.88", "1.442", "1686.6", "4500.0", "0.0", "20.0", "-40.0", "650.0",
             "0.01", "1.0e-3", "1.23")
KELM_PENTODE(pKT66, "0.0", "34.89", "22.3", "11.68", "1.197", "510.9", "4500.0", "0.53", "8.0", "-8.0", "650.0", "",
             "3.14e-4", "3.0")
KELM_PENTODE(pGE6V6GT, "0.00", "38.07", "30.2", "12.67", "1.198", "915.0", "4500", "0.0", "30.0", "-40.0", "650.0",
             "0.01", "2.2e-4", "1.5")
#undef KELM_PENTODE
} // namespace

const TubeTypes::Table& TubeTypes::triodes() {
    static const Table t = {{"12AX7", t12AX7}, {"12AY7", t12AY7}};
    return t;
}

const TubeTypes::Table& TubeTypes::pentodes() {
    static const Table t = {
        {"JJEL34", pJJEL34}, {"5881", p5881}, {"GE6L6GC", pGE6L6GC}, {"KT66", pKT66}, {"GE6V6GT", pGE6V6GT}};
    return t;
}

} // namespace kelm

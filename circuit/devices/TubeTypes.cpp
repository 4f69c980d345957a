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

// VgkMin, below which the model gives no plate current, lies where the Koren current at
// 400 V has fallen below a few nA, so that the cut-off is no step in the current: low-mu
// types conduct far below the grid voltage that 12AX7's -8 V stands for.

// Koren's own published set (N. Koren, "Improved vacuum tube models for SPICE simulations",
// Glass Audio 8(5), 1996, and the model library that accompanies it).
const TubeTypes::Parameters& t12AU7() {
    static const TubeTypes::Parameters p = fill({{"Vct", "0.0"}, {"Kp", "84.0"}, {"Kvb", "300.0"}, {"mu", "21.5"},
                                                 {"Ex", "1.3"}, {"Kg", "1180.0"}, {"Vc", "0.53"}, {"VgkMax", "4.0"},
                                                 {"VgkMin", "-80.0"}, {"VpMax", "400.0"}, {"Igc", "3.14e-4"},
                                                 {"N", "3.0"}, {"DeltaVpk", "2"}, {"DeltaVgk", "0.05"}});
    return p;
}

// The sets below are Koren-equation fits to manufacturers' data sheets from the LTspice
// tube library "Small-signal Triode models by Norman Koren" (nk_triode.sub, 2008), the
// set the 12AY7 above comes from: 12AT7 from its ECC81 entry (Mullard data book, 1969),
// 6SN7 from its 6SN7GTB entry (Sylvania), 6SL7 from its 6SL7GT entry (GE), which carries
// a contact potential of 0.5 V. (Koren's own 12AT7 set gives 12.8 mA at 250 V and -2 V
// against the data sheets' 10 mA; the ECC81 fit gives 10.0 mA.)
const TubeTypes::Parameters& t12AT7() {
    static const TubeTypes::Parameters p = fill({{"Vct", "0.0"}, {"Kp", "231.05"}, {"Kvb", "300.0"}, {"mu", "77.09"},
                                                 {"Ex", "1.077"}, {"Kg", "320.1"}, {"Vc", "0.53"}, {"VgkMax", "4.0"},
                                                 {"VgkMin", "-32.0"}, {"VpMax", "400.0"}, {"Igc", "3.14e-4"},
                                                 {"N", "3.0"}, {"DeltaVpk", "2"}, {"DeltaVgk", "0.02"}});
    return p;
}

const TubeTypes::Parameters& t6SN7() {
    static const TubeTypes::Parameters p = fill({{"Vct", "0.0"}, {"Kp", "156.78"}, {"Kvb", "296.4"}, {"mu", "21.54"},
                                                 {"Ex", "1.316"}, {"Kg", "1261.1"}, {"Vc", "0.53"}, {"VgkMax", "4.0"},
                                                 {"VgkMin", "-50.0"}, {"VpMax", "400.0"}, {"Igc", "3.14e-4"},
                                                 {"N", "3.0"}, {"DeltaVpk", "2"}, {"DeltaVgk", "0.05"}});
    return p;
}

const TubeTypes::Parameters& t6SL7() {
    static const TubeTypes::Parameters p = fill({{"Vct", "0.5"}, {"Kp", "1725.27"}, {"Kvb", "7.0"}, {"mu", "75.89"},
                                                 {"Ex", "1.233"}, {"Kg", "1735.2"}, {"Vc", "0.53"}, {"VgkMax", "4.0"},
                                                 {"VgkMin", "-10.0"}, {"VpMax", "400.0"}, {"Igc", "3.14e-4"},
                                                 {"N", "3.0"}, {"DeltaVpk", "2"}, {"DeltaVgk", "0.01"}});
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
// Koren pentode fits to data sheets from the LTspice tube library "Pentode and Beam Tetrode
// models by Norman Koren" (nk_pentode.sub, 2008), the set GE6L6GC and KT66 above come from:
// EF86 from the Philips data sheet, EL84 from the Mullard data sheet. The grid current is
// the power law of the other types.
KELM_PENTODE(pEF86, "0.0", "222.06", "4.7", "34.9", "1.35", "2648.1", "4500.0", "0.53", "8.0", "-8.0", "650.0", "",
             "3.14e-4", "3.0")
KELM_PENTODE(pEL84, "0.0", "111.04", "17.9", "21.29", "1.24", "401.7", "4500.0", "0.53", "8.0", "-20.0", "650.0", "",
             "3.14e-4", "3.0")
#undef KELM_PENTODE
} // namespace

const TubeTypes::Table& TubeTypes::triodes() {
    static const Table t = {{"12AX7", t12AX7}, {"12AY7", t12AY7}, {"12AT7", t12AT7},
                            {"12AU7", t12AU7}, {"6SL7", t6SL7},   {"6SN7", t6SN7}};
    return t;
}

const TubeTypes::Table& TubeTypes::pentodes() {
    // "6V6" is the GE 6V6GT set under the tube's plain name.
    static const Table t = {{"JJEL34", pJJEL34}, {"5881", p5881},   {"GE6L6GC", pGE6L6GC}, {"KT66", pKT66},
                            {"GE6V6GT", pGE6V6GT}, {"6V6", pGE6V6GT}, {"EF86", pEF86},       {"EL84", pEL84}};
    return t;
}

} // namespace kelm

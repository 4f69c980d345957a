#include "engine/SystemInfo.h"

#include <iomanip>

#include "engine/Driver.h"
#include "engine/Graph.h"

namespace kelm {

void SystemInfo::describe(Driver& driver, std::ostream& out) {
    const auto& graphs = driver.getGraphs();
    out << "System: " << graphs.size() << " graph(s), " << driver.getNumberOfInputs() << " input(s), "
        << driver.getNumberOfOutputs() << " output(s), " << driver.getControls().size() << " control(s)\n";
    out << "Graphs in processing order:\n";
    auto graphName = [&](int g) { return g < 0 ? std::string("System") : graphs[g]->name(); };
    for (int gi : driver.getOrder()) {
        const Graph& g = *graphs[gi];
        out << "  " << g.name() << " [" << (g.getType() == GraphType::MNA ? "MNA" : "DSP") << "]"
            << " rate x" << g.getInputMultiplier() << " -> x" << g.getOutputMultiplier();
        if (g.isOff()) out << " (off)";
        if (g.isBypassed()) out << " (bypassed)";
        out << "\n    inputs:";
        const auto& sources = driver.getInputGraphs()[gi];
        const auto& nodes = driver.getInputNodes()[gi];
        if (sources.empty()) out << " none";
        for (size_t k = 0; k < sources.size(); ++k) {
            out << " " << k << "<-" << graphName(sources[k]) << ":";
            if (sources[k] < 0)
                out << nodes[k];
            else {
                const auto& labels = graphs[sources[k]]->getOutputLabels();
                out << (nodes[k] < static_cast<int>(labels.size()) ? labels[nodes[k]] : std::to_string(nodes[k]));
            }
        }
        out << "\n    outputs:";
        const auto& labels = g.getOutputLabels();
        if (labels.empty()) out << " none";
        for (size_t k = 0; k < labels.size(); ++k) out << " " << k << ":" << labels[k];
        out << "\n";
        const std::string solve = g.describeSolve();
        if (!solve.empty()) out << "    " << solve << "\n";
    }
    out << "System outputs:";
    for (int o = 0; o < driver.getNumberOfOutputs(); ++o) {
        int g = driver.getOutputGraphs()[o];
        out << " " << o << "<-" << graphName(g) << ":";
        if (g < 0)
            out << driver.getOutputNodes()[o];
        else {
            const auto& labels = graphs[g]->getOutputLabels();
            int n = driver.getOutputNodes()[o];
            out << (n < static_cast<int>(labels.size()) ? labels[n] : std::to_string(n));
        }
    }
    out << "\nControls:\n";
    for (auto& c : driver.getControls()) {
        out << "  " << c->name << " = " << c->getValue() << "  ->";
        for (auto& p : *c->getProperties()) {
            out << " " << p->graphName;
            if (!p->elementName.empty()) out << "/" << p->elementName;
            out << ":" << p->name;
        }
        out << "\n";
    }
}

} // namespace kelm

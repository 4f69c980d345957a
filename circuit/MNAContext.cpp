#include "circuit/MNAContext.h"

#include <algorithm>

#include "circuit/MNAEventListener.h"
#include "engine/InvalidArgumentException.h"

namespace kelm {

void Component::initBase(const std::string& name, const NodeNames& names, const std::shared_ptr<MNAContext>& ctx) {
    elementName = name;
    nodeNames = names ? names : std::make_shared<std::vector<std::string>>();
    context = ctx.get();
}

MNAContext::MNAContext()
    : A(std::make_shared<DenseMatrix>()), x(std::make_shared<DenseVector>()), J(std::make_shared<DenseMatrix>()) {
    sampleRate = 48000.0f;
}

MNAContext::~MNAContext() {
    for (auto& entry : elementsByName) delete entry.second;
}

void MNAContext::setSampleRate(scalar rate) {
    sampleRate = rate;
    if (initialized)
        for (MNAEventListener* l : listenerList) l->sampleRateChanged(rate);
}

Element* MNAContext::getElement(const std::string& name) {
    auto it = elementsByName.find(name);
    if (it == elementsByName.end()) throw InvalidArgumentException("MNAContext cannot find element with name " + name);
    return it->second;
}

void MNAContext::addListener(MNAEventListener* l) {
    if (std::find(listenerList.begin(), listenerList.end(), l) == listenerList.end()) listenerList.push_back(l);
}

void MNAContext::addElement(Element* element) {
    Component* c = dynamic_cast<Component*>(element);
    if (!c) {
        delete element;
        throw InvalidArgumentException("MNAContext: element is not a Component");
    }
    if (initialized) {
        delete c;
        throw KELMException("Cannot add components after the context was initialized");
    }
    if (!elementsByName.emplace(c->name(), c).second) {
        std::string name = c->name();
        delete c;
        throw KELMException("Duplicate component name: " + name);
    }
    components.push_back(c);
    componentNames.push_back(c->name());
    rhsFlags.push_back(c->hasRhs());
    extraCounts.push_back(c->getNumberOfExtraVariables());
    if (c->isFixedVoltage() && !c->hasRhs())
        throw KELMException("Fixed voltage component must have rhs. Component name=" + c->name());
    fixedFlags.push_back(c->isFixedVoltage());
    nonlinearFlags.push_back(c->isNonlinear());
}

int MNAContext::nodeIndex(const std::string& name) const {
    auto it = nodesByName.find(name);
    return it == nodesByName.end() ? -1 : it->second;
}

void MNAContext::init() {
    for (size_t i = 0; i < components.size(); ++i) {
        if (!fixedFlags[i]) continue;
        const std::string fixedNode = components[i]->getFixedVoltageNode();
        for (const std::string& n : *components[i]->getNodeNames())
            if (n == fixedNode && !nodesByName.count(n)) nodesByName[n] = --fixedMarkerValue;
    }
    for (size_t i = 0; i < components.size(); ++i) {
        const auto& names = *components[i]->getNodeNames();
        auto indices = std::make_shared<std::vector<int>>(names.size());
        for (size_t a = 0; a < names.size(); ++a) {
            const std::string& n = names[a];
            if (n == "0" || n == "GND") {
                (*indices)[a] = -1;
                continue;
            }
            auto it = nodesByName.find(n);
            if (it != nodesByName.end())
                (*indices)[a] = it->second;
            else
                (*indices)[a] = nodesByName[n] = ++lastNode;
        }
        nodeIndices.push_back(indices);
        fixedRow.push_back(fixedFlags[i] ? nodesByName[components[i]->getFixedVoltageNode()] : -1);
    }
    if (lastNode == -1) throw KELMException("No MNA nodes.");
    for (size_t i = 0; i < componentNames.size(); ++i) {
        int m = components[i]->getNumberOfExtraVariables();
        extraCounts[i] = m;
        if (m < 1) {
            firstExtra.push_back(lastNode + 1);
        } else {
            int index = lastNode + extraCount + 1;
            components[i]->setFirstExtraVariable(index);
            extraByName[componentNames[i]] = index;
            firstExtra.push_back(index);
            extraCount += m;
        }
    }
    if (fixedMarkerValue != -1) {
        const int s = lastNode + extraCount;
        auto remap = [s](int& v) {
            if (v < -1) v = s - v - 1;
        };
        for (auto& entry : nodesByName) remap(entry.second);
        for (auto& indices : nodeIndices)
            for (int& v : *indices) remap(v);
        for (int& v : fixedRow) remap(v);
    }
    for (size_t i = 0; i < components.size(); ++i) components[i]->setNodes(nodeIndices[i]);
    if (outputNames) {
        outputIndices.clear();
        for (const std::string& n : *outputNames) {
            auto it = nodesByName.find(n);
            if (it == nodesByName.end()) throw KELMException("Output node with name " + n + " does not exist.");
            outputIndices.push_back(it->second);
        }
        outputs = std::make_shared<ScalarVector>(outputNames->size(), 0.0f);
    }
    const int T = size();
    x->setZero(T);
    fixedValues.setZero(T);
    A->setZero(T, T);
    J->setZero(T, T);
    slots.clear();
    for (size_t i = 0; i < components.size(); ++i)
        slots.push_back({components[i], nodeIndices[i]->data(), static_cast<int>(nodeIndices[i]->size()), extraCounts[i],
                         firstExtra[i], fixedFlags[i] ? fixedRow[i] : -1});
    rhsList.clear();
    nonlinearList.clear();
    fixedList.clear();
    for (size_t i = 0; i < components.size(); ++i) {
        if (rhsFlags[i]) rhsList.push_back(static_cast<int>(i));
        if (nonlinearFlags[i]) nonlinearList.push_back(static_cast<int>(i));
        if (fixedFlags[i]) fixedList.push_back(static_cast<int>(i));
    }
    buildEntries();
    signalDependentList.clear();
    signalStamps.clear();
    for (size_t i = 0; i < components.size(); ++i) {
        if (!components[i]->hasSignalDependentStamps()) continue;
        signalDependentList.push_back(static_cast<int>(i));
        const Slot& s = slots[i];
        if (s.m > 0) {
            signalStamps.push_back({s.component, 0, -1});
            continue;
        }
        // stamp()'s conductance loop, its destinations listed once.
        signalStamps.push_back(listStampEntries(s));
    }
    signalDests.clear();
    for (const EntryRange& range : signalStamps) {
        if (range.count < 0) {
            signalDests.clear();
            break;
        }
        for (int k = range.first; k < range.first + range.count; ++k)
            if (std::find(signalDests.begin(), signalDests.end(), entries[k].dest) == signalDests.end())
                signalDests.push_back(entries[k].dest);
    }
    fixedRowShared = false;
    for (size_t a = 0; a < fixedList.size(); ++a)
        for (size_t b = a + 1; b < fixedList.size(); ++b)
            if (slots[fixedList[a]].fixedRow == slots[fixedList[b]].fixedRow) fixedRowShared = true;
    buildPorts();
    initialized = true;
}

int MNAContext::unknownRow(size_t c, int e) const {
    const Slot& s = slots[c];
    if (e < 0) return -1;
    if (e < s.k) return s.nodes[e];
    return e - s.k < s.m ? s.firstExtra + (e - s.k) : -1;
}

int MNAContext::rhsRow(size_t c, int e) const {
    const int row = unknownRow(c, e);
    if (row < 0) return -1;
    // The rows of fixed nodes hold their values: only the component that fixes one writes it.
    if (row >= solvedCount() && row != slots[c].fixedRow) return -1;
    return row;
}

void MNAContext::setAnalysisType(AnalysisType type) {
    if (initialized)
        for (MNAEventListener* l : listenerList) l->analysisChanged(analysisType, type);
    analysisType = type;
}

void MNAContext::notifyNextSample() {
    if (initialized)
        for (MNAEventListener* l : listenerList) l->nextSample();
}

template <typename T>
void MNAContext::stamp(const Slot& s, T* M) {
    const int last = lastNode + extraCount;
    const int rows = static_cast<int>(A->rows());
    auto at = [M, rows](int r, int c) -> T& { return M[static_cast<size_t>(c) * rows + r]; };
    const int* n = s.nodes;
    if (scalar** G = s.component->getG()) {
        for (int a = 0; a < s.k; ++a) {
            if (n[a] == -1 || n[a] > last) continue;
            for (int b = 0; b < s.k; ++b)
                if (n[b] != -1) at(n[a], n[b]) += G[a][b];
        }
    }
    if (s.m > 0) {
        const int f = s.firstExtra;
        if (scalar** B = s.component->getB())
            for (int j = 0; j < s.m; ++j)
                for (int a = 0; a < s.k; ++a)
                    if (n[a] != -1 && n[a] <= last) at(n[a], f + j) += B[a][j];
        if (scalar** C = s.component->getC())
            for (int j = 0; j < s.m; ++j)
                for (int a = 0; a < s.k; ++a)
                    if (n[a] != -1) at(f + j, n[a]) += C[j][a];
        if (scalar** D = s.component->getD())
            for (int j = 0; j < s.m; ++j)
                for (int l = 0; l < s.m; ++l) at(f + j, f + l) += D[j][l];
    }
}

void MNAContext::assembleMatrix() {
    const int T = static_cast<int>(A->rows());
    const size_t size = static_cast<size_t>(T) * A->cols();
    steadyPart.resize(T, T);
    scalar* M = steadyPart.data();
    std::fill(M, M + size, 0.0f);
    for (const Slot& s : slots)
        if (!s.component->hasSignalDependentStamps()) stamp(s, M);
    for (const Slot& s : slots)
        if (s.fixedRow >= 0) M[static_cast<size_t>(s.fixedRow) * T + s.fixedRow] = 1.0f;
    restampSignalDependent();
}

void MNAContext::assembleMatrix(double* M, bool signalStamps) {
    const int T = static_cast<int>(A->rows());
    std::fill(M, M + static_cast<size_t>(T) * T, 0.0);
    for (const Slot& s : slots)
        if (signalStamps || !s.component->hasSignalDependentStamps()) stamp(s, M);
    for (const Slot& s : slots)
        if (s.fixedRow >= 0) M[static_cast<size_t>(s.fixedRow) * T + s.fixedRow] = 1.0;
}

void MNAContext::restampSignalDependent() { restampSignalDependent(A->data()); }

void MNAContext::restampSignalDependent(scalar* to) {
    const scalar* from = steadyPart.data();
    for (Eigen::Index i = 0, size = steadyPart.size(); i < size; ++i) to[i] = from[i];
    addSignalStamps(to);
}

void MNAContext::restampSignalDependentEntries(scalar* to) {
    if (signalDests.empty()) {
        restampSignalDependent(to);
        return;
    }
    const scalar* from = steadyPart.data();
    for (int d : signalDests) to[d] = from[d];
    addSignalStamps(to);
}

void MNAContext::addSignalStamps(scalar* to) {
    const Entry* e = entries.data();
    for (size_t k = 0; k < signalStamps.size(); ++k) {
        const EntryRange& range = signalStamps[k];
        if (range.count < 0) {
            stamp(slots[signalDependentList[k]], to);
            continue;
        }
        scalar** G = range.component->getG();
        if (!G) continue;
        for (const Entry* t = e + range.first; t != e + range.first + range.count; ++t) to[t->dest] += G[t->a][t->b];
    }
}

void MNAContext::computeRhs(DenseVector& xv, DenseVector& rhsVector) {
    const int T = size();
    if (rhsVector.size() != T) rhsVector.resize(T);
    scalar* rhs = rhsVector.data();
    std::fill(rhs, rhs + T, 0.0f);
    accumulateRhs(allRhs, xv.data(), rhs);
    writeFixedValues(rhs);
}

void MNAContext::computeRhs(DenseVector& xv, DenseVector& rhsVector, double share) {
    const int T = size();
    if (rhsVector.size() != T) rhsVector.resize(T);
    scalar* rhs = rhsVector.data();
    std::fill(rhs, rhs + T, 0.0f);
    accumulateRhs(constantRhs, xv.data(), rhs);
    for (int i = 0; i < T; ++i) rhs[i] = static_cast<scalar>(share * rhs[i]);
    const Entry* e = entries.data();
    for (const EntryRange& range : constantRhs)
        for (const Entry* t = e + range.first; t != e + range.first + range.count; ++t)
            if (t->b) fixedValues[t->dest] = static_cast<scalar>(share * fixedValues[t->dest]);
    accumulateRhs(varyingRhs, xv.data(), rhs);
    writeFixedValues(rhs);
}

void MNAContext::computeConstantRhs(scalar* xp, scalar* rhs) {
    std::fill(rhs, rhs + size(), 0.0f);
    accumulateRhs(constantRhs, xp, rhs);
}

void MNAContext::addVaryingRhs(scalar* xp, scalar* rhs) {
    accumulateRhs(varyingRhs, xp, rhs);
    writeFixedValues(rhs);
}

MNAContext::EntryRange MNAContext::listStampEntries(const Slot& s) {
    // Rows of ground and of nodes that another component fixes take no stamp.
    const int T = size();
    const int last = lastNode + extraCount;
    const int first = static_cast<int>(entries.size());
    for (int a = 0; a < s.k; ++a) {
        const int row = s.nodes[a];
        if (row == -1 || row > last) continue;
        for (int b = 0; b < s.k; ++b)
            if (s.nodes[b] != -1) entries.push_back({a, b, s.nodes[b] * T + row});
    }
    return {s.component, first, static_cast<int>(entries.size()) - first};
}

void MNAContext::buildEntries() {
    entries.clear();
    allRhs.clear();
    constantRhs.clear();
    varyingRhs.clear();
    jacobianStamps.clear();
    for (int i : rhsList) {
        const Slot& s = slots[i];
        const int first = static_cast<int>(entries.size());
        for (int a = 0; a < s.k; ++a) {
            const int row = s.nodes[a];
            if (row != -1) entries.push_back({a, row == s.fixedRow ? 1 : 0, row});
        }
        for (int j = 0; j < s.m; ++j) entries.push_back({s.k + j, 0, s.firstExtra + j});
        const EntryRange range{s.component, first, static_cast<int>(entries.size()) - first};
        allRhs.push_back(range);
        (s.component->rhsReadsSolution() ? varyingRhs : constantRhs).push_back(range);
    }
    for (int i : nonlinearList) jacobianStamps.push_back(listStampEntries(slots[i]));
    evaluatedBoth.clear();
    varyingRhsOnly.clear();
    stampsOnly.clear();
    for (const EntryRange& r : varyingRhs) {
        auto both = std::find_if(jacobianStamps.begin(), jacobianStamps.end(),
                                 [&r](const EntryRange& j) { return j.component == r.component; });
        if (both != jacobianStamps.end())
            evaluatedBoth.emplace_back(r, *both);
        else
            varyingRhsOnly.push_back(r);
    }
    for (const EntryRange& j : jacobianStamps) {
        auto both = std::find_if(varyingRhs.begin(), varyingRhs.end(),
                                 [&j](const EntryRange& r) { return r.component == j.component; });
        if (both == varyingRhs.end()) stampsOnly.push_back(j);
    }
}

void MNAContext::addVaryingRhsAndStamps(scalar* xp, scalar* rhs, scalar* m) {
    scalar* fixedAt = fixedValues.data();
    const Entry* e = entries.data();
    for (const auto& both : evaluatedBoth) {
        scalar** stampRows = nullptr;
        const scalar* r = both.first.component->evaluate(xp, stampRows);
        if (r) {
            for (const Entry* t = e + both.first.first; t != e + both.first.first + both.first.count; ++t) {
                if (t->b)
                    fixedAt[t->dest] = r[t->a];
                else
                    rhs[t->dest] += r[t->a];
            }
        }
        if (stampRows)
            for (const Entry* t = e + both.second.first; t != e + both.second.first + both.second.count; ++t)
                m[t->dest] += stampRows[t->a][t->b];
    }
    if (!varyingRhsOnly.empty()) accumulateRhs(varyingRhsOnly, xp, rhs);
    writeFixedValues(rhs);
    for (const EntryRange& range : stampsOnly) {
        scalar** stampRows = range.component->getJacobian(xp);
        if (!stampRows) continue;
        for (const Entry* t = e + range.first; t != e + range.first + range.count; ++t)
            m[t->dest] += stampRows[t->a][t->b];
    }
}

Component* MNAContext::soleNonlinear(bool signalStampsAllowed) const {
    if (evaluatedBoth.size() != 1 || !varyingRhsOnly.empty() || !stampsOnly.empty() ||
        (!signalStampsAllowed && !signalStamps.empty()))
        return nullptr;
    return evaluatedBoth[0].first.component;
}

void MNAContext::writeFixedValues(scalar* rhs) const {
    for (int i : fixedList) rhs[slots[i].fixedRow] = fixedValues[slots[i].fixedRow];
}

void MNAContext::accumulateRhs(const std::vector<EntryRange>& list, scalar* xp, scalar* rhs) {
    scalar* fixedAt = fixedValues.data();
    const Entry* e = entries.data();
    for (const EntryRange& range : list) {
        const scalar* r = range.component->getRhs(xp);
        if (!r) continue;
        for (const Entry* t = e + range.first; t != e + range.first + range.count; ++t) {
            if (t->b)
                fixedAt[t->dest] = r[t->a];
            else
                rhs[t->dest] += r[t->a];
        }
    }
}

void MNAContext::buildPorts() {
    portTerms.clear();
    portSlots.clear();
    portRows.clear();
    fixedPorts.clear();
    const int last = lastNode + extraCount;
    auto newPort = [this](int plus, int minus) {
        portRows.emplace_back(plus, minus);
        return static_cast<int>(portRows.size()) - 1;
    };
    for (int i : rhsList) {
        const Slot& s = slots[i];
        const int first = static_cast<int>(portTerms.size());
        int base = -1, baseRow = -1;
        for (int a = 0; a < s.k; ++a) {
            const int row = s.nodes[a];
            if (row == -1) continue;
            if (row == s.fixedRow) {
                int port = -1;
                for (auto& fp : fixedPorts)
                    if (fp.second == row) port = fp.first;
                if (port < 0) {
                    port = newPort(row, -1);
                    fixedPorts.emplace_back(port, row);
                }
                portTerms.push_back({a, port, 0.0f, row});
                continue;
            }
            if (row > last) continue;  // a node that another component fixes: its value wins
            if (base < 0) {
                base = newPort(row, -1);
                baseRow = row;
            }
            // r e_row = r e_base - r (e_base - e_row)
            portTerms.push_back({a, base, 1.0f, -1});
            if (row != baseRow) portTerms.push_back({a, newPort(baseRow, row), -1.0f, -1});
        }
        for (int j = 0; j < s.m; ++j) portTerms.push_back({s.k + j, newPort(s.firstExtra + j, -1), 1.0f, -1});
        portSlots.push_back({i, first, static_cast<int>(portTerms.size()) - first});
    }
}

void MNAContext::portColumn(int p, scalar* column) const {
    std::fill(column, column + size(), 0.0f);
    column[portRows[p].first] = 1.0f;
    if (portRows[p].second >= 0) column[portRows[p].second] = -1.0f;
}

void MNAContext::computePortAmplitudes(scalar* xp, scalar* u) {
    const int P = portCount();
    for (int p = 0; p < P; ++p) u[p] = 0.0f;
    scalar* fixedAt = fixedValues.data();
    for (const PortSlot& ps : portSlots) {
        const scalar* r = slots[ps.slot].component->getRhs(xp);
        if (!r) continue;
        for (const PortTerm* t = portTerms.data() + ps.first; t != portTerms.data() + ps.first + ps.count; ++t) {
            if (t->fixedRow < 0)
                u[t->port] += t->sign * r[t->source];
            else
                fixedAt[t->fixedRow] = r[t->source];
        }
    }
    for (auto& fp : fixedPorts) u[fp.first] = fixedAt[fp.second];
}

bool MNAContext::addPortAmplitudes(const Component* c, const scalar* r, scalar* u) const {
    for (const PortSlot& ps : portSlots) {
        if (slots[ps.slot].component != c) continue;
        for (const PortTerm* t = portTerms.data() + ps.first; t != portTerms.data() + ps.first + ps.count; ++t) {
            if (t->fixedRow < 0)
                u[t->port] += t->sign * r[t->source];
            else
                u[t->port] = r[t->source];
        }
        return true;
    }
    return false;
}

DenseMatrix& MNAContext::computeJacobian(DenseVector& xv) {
    DenseMatrix& M = *J;
    const int T = static_cast<int>(A->rows());
    std::copy(A->data(), A->data() + static_cast<size_t>(T) * T, M.data());
    addJacobianStamps(xv.data(), M.data());
    return M;
}

template <typename T>
void MNAContext::jacobianStampsInto(scalar* xp, T* m) {
    const Entry* e = entries.data();
    for (const EntryRange& range : jacobianStamps) {
        scalar** stamp = range.component->getJacobian(xp);
        if (!stamp) continue;
        for (const Entry* t = e + range.first; t != e + range.first + range.count; ++t) m[t->dest] += stamp[t->a][t->b];
    }
}

void MNAContext::addJacobianStamps(scalar* xp, scalar* m) { jacobianStampsInto(xp, m); }

void MNAContext::addJacobianStamps(scalar* xp, double* m) { jacobianStampsInto(xp, m); }

const ScalarVectorPtr& MNAContext::getOutputs() {
    if (outputNames)
        for (size_t i = 0; i < outputIndices.size(); ++i) (*outputs)[i] = (*x)[outputIndices[i]];
    return outputs;
}

} // namespace kelm

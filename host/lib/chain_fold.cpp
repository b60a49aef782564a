#include "host/lib/chain_fold.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <queue>
#include <tuple>

namespace zelhost {
namespace {

// For a vertex without a parent and for a group that has no vertex yet.
constexpr size_t kNone = SIZE_MAX;

// For each vertex the number of the group that it goes into. Vertices of one group become one.
class Groups {
public:
    explicit Groups(const Chain& chain) : chain_(chain), group_(chain.vertices.size()) { reset(); }

    // How many vertices a picture would have now.
    size_t shown() const { return shown_; }
    size_t of(size_t vertex) const { return group_[vertex]; }

    // A leaf has edges with one other vertex alone, its parent. What a rule hits stays by itself.
    void fold_leaves(size_t at_least) {
        reset();
        // The key is the parent and the kind, so files are never joined with addresses.
        std::vector<size_t> parent = parents();
        std::map<std::pair<size_t, std::string_view>, std::vector<size_t>> leaves;
        for (size_t i = 0; i < parent.size(); ++i)
            if (parent[i] != kNone && chain_.vertices[i].mark != Mark::hit)
                leaves[{parent[i], chain_.vertices[i].kind->plural}].push_back(i);
        for (const auto& [key, members] : leaves)
            // A small group is easier to read as it is.
            if (members.size() >= at_least) join(members);
    }

    // Keeps the nearest vertices, each found from its neighbour, and gives all others to the kept one behind which they
    // lie.
    void keep_nearest(size_t most) {
        const auto [order, owner] = walk(most);
        // What lies behind a kept vertex becomes one vertex beside it.
        std::map<size_t, std::vector<size_t>> behind;
        for (size_t i = most; i < order.size(); ++i) behind[owner[order[i]]].push_back(order[i]);
        reset();
        for (const auto& [kept, members] : behind) join(members);
        is_rest_.assign(group_.size(), false);
        for (size_t i = most; i < order.size(); ++i) is_rest_[order[i]] = true;
    }

    // Whether the vertex stands behind one that is kept.
    bool is_rest(size_t vertex) const { return !is_rest_.empty() && is_rest_[vertex]; }

private:
    // Each vertex in a group of its own. An attempt at folding begins anew, since it may join more than the one before.
    void reset() {
        std::iota(group_.begin(), group_.end(), size_t{0});
        shown_ = group_.size();
    }

    // A group is known by its first member.
    void join(const std::vector<size_t>& members) {
        for (const size_t member : members) group_[member] = members.front();
        shown_ -= members.size() - 1;
    }

    // Of each leaf; kNone of what is none. Two leaves that have but each other are no leaves.
    std::vector<size_t> parents() const {
        // The first neighbour is taken for the parent until another one is seen.
        std::vector<size_t> parent(chain_.vertices.size(), kNone);
        std::vector<bool> is_inner(chain_.vertices.size(), false);
        for (const ChainEdge& edge : chain_.edges)
            for (const auto& [one, other] : {std::pair{edge.from, edge.to}, std::pair{edge.to, edge.from}}) {
                if (parent[one] != kNone && parent[one] != other) is_inner[one] = true;
                parent[one] = other;
            }
        for (size_t i = 0; i < parent.size(); ++i)
            if (is_inner[i]) parent[i] = kNone;
        // Pairs are looked up in a copy. Otherwise the first of a pair would hide the second.
        const std::vector<size_t> all = parent;
        for (size_t i = 0; i < parent.size(); ++i)
            if (all[i] != kNone && all[all[i]] == i) parent[i] = kNone;
        return parent;
    }

    // All vertices in the order in which a walk along the edges meets them, and for each the one among the first `most`
    // from which it was met. The walk begins at what a rule hits and prefers it on its way, so that the first hang
    // together.
    std::pair<std::vector<size_t>, std::vector<size_t>> walk(size_t most) const {
        const std::vector<std::vector<size_t>> neighbours = all_neighbours();
        std::vector<size_t> order, owner(neighbours.size(), kNone);
        // Of those that wait, the best marked and then the first to come is next.
        std::priority_queue<std::tuple<Mark, size_t, size_t>> waiting;
        // Counts down, so that of equal marks the one that was met first is taken first.
        size_t turn = SIZE_MAX;
        const auto meet = [&](size_t vertex, size_t from) {
            if (owner[vertex] != kNone) return;
            owner[vertex] = from;
            waiting.emplace(chain_.vertices[vertex].mark, turn--, vertex);
        };
        std::vector<size_t> seeds(neighbours.size());
        std::iota(seeds.begin(), seeds.end(), size_t{0});
        std::ranges::sort(seeds, {},
                          [&](size_t i) { return std::pair(-static_cast<int>(chain_.vertices[i].mark), i); });
        size_t apart = kNone;  // owns all that hangs together with nothing of the first
        // What hangs together with nothing that is kept is put behind one vertex of its own.
        for (const size_t seed : seeds) {
            if (apart == kNone && order.size() >= most && owner[seed] == kNone) apart = seed;
            meet(seed, apart == kNone ? seed : apart);
            while (!waiting.empty()) {
                const size_t vertex = std::get<2>(waiting.top());
                waiting.pop();
                // Among the first, a vertex is its own owner.
                if (order.size() < most) owner[vertex] = vertex;
                order.push_back(vertex);
                for (const size_t neighbour : neighbours[vertex]) meet(neighbour, owner[vertex]);
            }
        }
        return {std::move(order), std::move(owner)};
    }

    // In both directions: what lies near does not depend on who acted.
    std::vector<std::vector<size_t>> all_neighbours() const {
        std::vector<std::vector<size_t>> neighbours(chain_.vertices.size());
        for (const ChainEdge& edge : chain_.edges) {
            neighbours[edge.from].push_back(edge.to);
            neighbours[edge.to].push_back(edge.from);
        }
        return neighbours;
    }

    const Chain& chain_;
    std::vector<size_t> group_;
    std::vector<bool> is_rest_;
    size_t shown_ = 0;
};

// What is alone in its group stays as it is. One vertex for each group, in the order of the first member; `place` gets
// where each old vertex went.
std::vector<ChainVertex> join_vertices(Chain& chain, const Groups& groups, std::vector<size_t>& place) {
    std::vector<ChainVertex> joined;
    std::vector<size_t> size(chain.vertices.size(), 0);
    // How many members each group has.
    for (size_t i = 0; i < size.size(); ++i) ++size[groups.of(i)];
    std::vector<size_t> made(size.size(), kNone);
    place.resize(size.size());
    for (size_t i = 0; i < size.size(); ++i) {
        const size_t group = groups.of(i);
        ChainVertex& vertex = chain.vertices[i];
        // The place of a group is that of its first member.
        if (made[group] == kNone) made[group] = joined.size();
        place[i] = made[group];
        if (size[group] == 1) {
            joined.push_back(std::move(vertex));
            continue;
        }
        if (made[group] == joined.size()) {
            joined.push_back({.kind = groups.is_rest(i) ? &kMoreVertices : vertex.kind});
            // The name says how many there are.
            joined.back().name = fmt::format("{} {}", size[group], joined.back().kind->plural);
        }
        ChainVertex& one = joined[made[group]];
        // The group has the highest mark of its members.
        one.mark = std::max(one.mark, vertex.mark);
        one.folded.push_back(std::move(vertex.name));
    }
    return joined;
}

// Edges of one kind between the same two are one. What lies within a group now is left out.
std::vector<ChainEdge> join_edges(const std::vector<ChainEdge>& edges, const std::vector<size_t>& place) {
    std::vector<ChainEdge> joined;
    std::map<std::tuple<size_t, size_t, std::string_view>, size_t> known;
    for (ChainEdge edge : edges) {
        // An edge from a vertex to itself was there before and stays.
        const bool was_loop = edge.from == edge.to;
        edge.from = place[edge.from];
        edge.to = place[edge.to];
        if (edge.from == edge.to && !was_loop) continue;
        const auto [at, is_new] = known.emplace(std::tuple{edge.from, edge.to, edge.word}, joined.size());
        if (is_new) {
            joined.push_back(edge);
            continue;
        }
        ChainEdge& one = joined[at->second];
        // Edges come in the order of time, so this is the latest.
        one.last = edge.last;
        one.count += edge.count;
        one.mark = std::max(one.mark, edge.mark);
    }
    return joined;
}

// Keeps first what holds the picture together and what rules name, then the earliest; returns how many edges are left
// out.
size_t limit_edges(std::vector<ChainEdge>& edges, size_t vertices, size_t most) {
    if (edges.size() <= most) return 0;
    // An edge to a vertex that no earlier edge has reached must stay. Otherwise that vertex would
    // hang in the air.
    std::vector<bool> reached(vertices, false);
    std::vector<std::pair<int, size_t>> order;
    for (size_t i = 0; i < edges.size(); ++i) {
        const bool is_new = !reached[edges[i].from] || !reached[edges[i].to];
        reached[edges[i].from] = reached[edges[i].to] = true;
        order.emplace_back(is_new ? 0 : edges[i].mark == Mark::none ? 2 : 1, i);
    }
    std::ranges::sort(order);
    size_t left_out = 0;
    for (size_t i = most; i < order.size(); ++i) left_out += edges[order[i].second].count;
    order.resize(most);
    // Back into the order of time.
    std::ranges::sort(order, {}, &std::pair<int, size_t>::second);
    std::vector<ChainEdge> kept;
    for (const auto& [rank, i] : order) kept.push_back(edges[i]);
    edges = std::move(kept);
    return left_out;
}

}  // namespace

Chain fold_chain(Chain chain, const FoldLimits& limits) {
    const size_t vertices = chain.vertices.size();
    const size_t edges = chain.edges.size();
    Groups groups(chain);
    // Two leaves at least, so that a second attempt can still join something.
    // The second attempt only comes when the first was not enough.
    for (const size_t at_least : {limits.leaves, size_t{2}})
        if (groups.shown() > limits.vertices) groups.fold_leaves(at_least);
    // Each that is kept may have one more vertex behind it.
    if (groups.shown() > limits.vertices) groups.keep_nearest(limits.vertices / 2);

    std::vector<size_t> place;
    std::vector<ChainVertex> joined = join_vertices(chain, groups, place);
    chain.vertices = std::move(joined);
    chain.edges = join_edges(chain.edges, place);
    const size_t left_out = limit_edges(chain.edges, chain.vertices.size(), limits.edges);
    if (chain.vertices.size() < vertices)
        chain.note = fmt::format("{} vertices, drawn as {}", vertices, chain.vertices.size());
    if (left_out > 0)
        chain.note += fmt::format("{}{} of {} edges are not drawn", chain.note.empty() ? "" : "; ", left_out, edges);
    return chain;
}

}  // namespace zelhost

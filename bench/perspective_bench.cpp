// The perspective estimator on 4, 100 and 10000 pairs: adding the pairs, one
// cast, and a whole estimate (additions and one cast), beside OpenCV's
// least-squares homography (method 0) on the same pairs, on one thread.
#include <sight/perspective/perspective.h>

#include <benchmark/benchmark.h>

#include <map>
#include <random>
#include <utility>
#include <vector>

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#endif

namespace {

using Korvane::Sight::perspective;

struct pair_set {
  std::vector<perspective::pair> pairs;
  std::vector<glm::vec2> from, to;
};

// Points spread over a 720x576 picture, moved by a mild perspective warp
// plus a pixel of noise: what a host tracking a point set would feed.
pair_set const &pairs(int n) {
  static std::map<int, pair_set> cache;
  if (auto const found = cache.find(n); found != cache.end()) return found->second;
  std::mt19937 rng{unsigned(n)};
  std::uniform_real_distribution<float> x(0.0f, 720.0f), y(0.0f, 576.0f), noise(-1.0f, 1.0f);
  glm::mat3 const warp(1.05f, 0.02f, 2e-5f, -0.03f, 0.98f, -1e-5f, 12.0f, -7.0f, 1.0f);
  pair_set set;
  for (int i = 0; i < n; ++i) {
    glm::vec2 const s(x(rng), y(rng));
    glm::vec3 const t = warp * glm::vec3(s, 1.0f);
    set.pairs.push_back({s, glm::vec2(t.x / t.z + noise(rng), t.y / t.z + noise(rng))});
    set.from.push_back(s);
    set.to.push_back(set.pairs.back().second);
  }
  return cache[n] = std::move(set);
}

// Time per pair appears as the counter per_pair.
void BM_perspective_add(benchmark::State &state) {
  auto const &set = pairs(int(state.range(0)));
  for (auto _ : state) {
    perspective p;
    for (auto const &q : set.pairs) p += q;
    benchmark::DoNotOptimize(p);
  }
  state.counters["per_pair"] =
      benchmark::Counter(double(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_perspective_cast(benchmark::State &state) {
  perspective p;
  for (auto const &q : pairs(int(state.range(0))).pairs) p += q;
  for (auto _ : state) {
    benchmark::DoNotOptimize(p);
    glm::mat3 const m = p;
    benchmark::DoNotOptimize(m);
  }
}

void BM_perspective_estimate(benchmark::State &state) {
  auto const &set = pairs(int(state.range(0)));
  for (auto _ : state) {
    perspective p;
    for (auto const &q : set.pairs) p += q;
    glm::mat3 const m = p;
    benchmark::DoNotOptimize(m);
  }
}

#ifdef SIGHT_HAVE_OPENCV
void BM_perspective_find_homography(benchmark::State &state) {
  cv::setNumThreads(1);
  auto const &set = pairs(int(state.range(0)));
  // glm::vec2 and cv::Point2f are both two packed floats.
  cv::Mat const from(int(set.from.size()), 1, CV_32FC2, const_cast<glm::vec2 *>(set.from.data()));
  cv::Mat const to(int(set.to.size()), 1, CV_32FC2, const_cast<glm::vec2 *>(set.to.data()));
  for (auto _ : state) {
    cv::Mat const h = cv::findHomography(from, to, 0);
    benchmark::DoNotOptimize(h.data);
  }
}
BENCHMARK(BM_perspective_find_homography)->ArgName("pairs")->Arg(4)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
#endif

BENCHMARK(BM_perspective_add)->ArgName("pairs")->Arg(4)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_perspective_cast)->ArgName("pairs")->Arg(4)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_perspective_estimate)->ArgName("pairs")->Arg(4)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace

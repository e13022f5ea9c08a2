// quillon-bench-summary FILE: prints every measurement of a Google Benchmark JSON file as
// a ratio to its baseline. Exits 1 when a run failed or lacks its partner, 2 when the file
// cannot be read; never because of a number.
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "ratio_table.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: quillon-bench-summary BENCHMARK_JSON\n";
        return 2;
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::cerr << "quillon-bench-summary: cannot read " << argv[1] << "\n";
        return 2;
    }
    std::stringstream text;
    text << in.rdbuf();

    std::vector<bench::BenchResult> results;
    std::string error;
    if (!bench::ReadBenchmarkJson(text.str(), &results, &error)) {
        std::cerr << "quillon-bench-summary: " << argv[1] << ": " << error << "\n";
        return 2;
    }
    bench::RatioTable table = bench::PairWithBaselines(results);
    std::cout << bench::FormatRatioTable(table);
    return table.problems.empty() && !table.rows.empty() ? 0 : 1;
}

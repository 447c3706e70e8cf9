// Measures replication on the stand-alone host: sending beside the programs that do it by hand, and
// the tool's precheck and status beside reading the same records with SQLite alone.

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench_main.h"
#include "benchmarks.h"
#include "loop_volume.h"

namespace {

constexpr char kUsage[] =
    R"(Usage: ./run bench replication [--dir=DIR] [--benchmark_filter=REGEX] [...]

  --dir=DIR  where the volumes are made; not under /var. The directory of this program unless given.
             Needs 12 GB, and root to mount loop images; nothing stays there.

The other options are those of Google Benchmark. Exits with 0 unless a benchmark could not run.

How it is counted: both sides run in turn, once per round; the ratio is the median of the rounds'
ratios. Sending is a sync of a plan, beside a snapshot by hand (btrfs subvolume snapshot; cp) that
is sent by hand (btrfs send | btrfs receive; rsync with the same options) and brought to disk, of
an image of the same size and changes on the same volumes; trees of small files are copied (cp) and
sent by rsync onto a copy of the last that has arrived. The precheck and the status are the
tool's, of a group on two directories; the raw side reads every record of the same targets and
plans over one connection and looks whether their bytes are there. A cut is that of the host, of
empty shares that were just written to, beside "btrfs subvolume snapshot" of each after the other.
The creation of a group snapshot, one target after the other without a cut, stands beside one run of
the database script, the host's own snapshot of each target and the rows, one durable insert each.
How long writers are held is counted in ms, with a control group of somebody who writes all shares,
beside the time from the first copy's beginning to the last one's end and 20 ms. The year is 8,760
snapshots of each of 1,000 targets: calls about one snapshot of such a target, beside the same of
one without; the list of all targets beside their rows and one count for each, and the KiB that it
takes beside 64 MiB. A protected group of 20 of them: the creation of a group snapshot beside the
same by hand, as above, and two lists of each target, its rows and the names of its snapshots; in an
hour, beside the same by hand of a group without history and without the lists; the status beside
that of such a group; the list of its group snapshots beside reading its catalogue and holding it;
and what a pruning looks at, by a rule and of what syncs have left, and a creation that fails with
the last target, beside reading the catalogue, all records of its targets and their copies and the
names, once; and their KiB beside 64 MiB.
)";

int Run(const std::filesystem::path& dir) {
  bench::EnterPrivateHost();
  const std::filesystem::path place = dir / ("replication-" + std::to_string(getpid()));
  std::filesystem::create_directories(place);
  bench::RegisterPlans(place / "plans");
  bench::RegisterCut(place / "cuts");
  bench::RegisterRealCreation(place / "created");
  bench::RegisterHeldCut(place / "held");
  bench::RegisterShip(place / "ship");
  bench::RegisterShipTree(place / "trees");
  bench::RegisterYear(place / "year");
  bench::RegisterYearOfGroups(place / "year");
  const int status = bench::RunRegistered();
  // Copied snapshots are immutable where the system allows it.
  bench::Shell("chattr -f -R -i '" + place.string() + "' || :; rm -rf '" + place.string() + "'");
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  return bench::RunMain(
      argc, argv, [] { std::fputs(kUsage, stdout); }, Run);
}

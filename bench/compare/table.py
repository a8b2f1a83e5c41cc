"""The comparison's table from the runs compare.sh wrote down.

    python3 table.py RESULTS.tsv

RESULTS.tsv has one line per run: workload, mode, contestant, outcome ("ok",
or why the run has no time), seconds, peak resident memory in KiB (or "-").
Workloads, modes and contestants appear in the table in the order they first
appear in the file. Prints the Markdown table, then the target checks, and
last "ratio=<tarnwell-cli first deployment / the fastest other tool's, passive
FTP>" (the curl floor is no other tool: it is tarnwell-cli's own command lines).
"""

import statistics
import sys

WORKLOADS = {
    "first": "First deployment",
    "incremental": "Incremental deployment",
    "deletions": "1,000 files deleted",
    "memory": "First deployment, peak memory",
}
MODES = {"passive": "passive FTP", "active": "active FTP", "sftp": "SFTP"}
TARNWELL = "tarnwell-cli"
TARNWELL_ONE = "tarnwell-cli, 1 connection"
FLOOR = "curl floor"
# The pause between the last transfer and the post-deploy stage.
PAUSE = 0.5


def read(path):
    runs = {}
    order = []
    with open(path, encoding="utf-8") as results:
        for line in results:
            fields = line.rstrip("\n").split("\t")
            if len(fields) < 6:
                continue
            workload, mode, contestant, outcome, seconds, peak = fields[:6]
            key = (workload, mode, contestant)
            if key not in runs:
                runs[key] = {"times": [], "peaks": [], "notes": []}
                order.append(key)
            if outcome == "ok":
                runs[key]["times"].append(float(seconds))
                if peak != "-":
                    runs[key]["peaks"].append(int(peak))
            elif outcome not in runs[key]["notes"]:
                runs[key]["notes"].append(outcome)
    return runs, order


def seconds(value):
    return f"{value:.2f}"


def main():
    runs, order = read(sys.argv[1])
    # Workloads and modes as they came; within them tarnwell-cli first, then
    # the floor, then the other tools.
    contestants = [TARNWELL, TARNWELL_ONE, FLOOR]
    position = {key: index for index, key in enumerate(order)}
    first_seen = {}
    for workload, mode, _ in order:
        first_seen.setdefault((workload, mode), len(first_seen))

    def rank(key):
        workload, mode, contestant = key
        known = contestants.index(contestant) if contestant in contestants else len(contestants)
        return (first_seen[(workload, mode)], known, position[key])

    order.sort(key=rank)
    medians = {key: statistics.median(entry["times"]) for key, entry in runs.items() if entry["times"]}

    print("| Workload | Mode | Contestant | Median (s) | Range (s) | Runs | tarnwell-cli / this | Peak RSS (MB) |")
    print("| --- | --- | --- | ---: | ---: | ---: | ---: | ---: |")
    for key in order:
        workload, mode, contestant = key
        entry = runs[key]
        times = entry["times"]
        label = WORKLOADS.get(workload, workload)
        if times:
            median = medians[key]
            spread = f"{seconds(min(times))}–{seconds(max(times))}"
            ours = medians.get((workload, mode, TARNWELL))
            ratio = f"{ours / median:.2f}" if ours is not None and median > 0 else "–"
            peak = f"{max(entry['peaks']) / 1024:.0f}" if entry["peaks"] else "–"
            cells = [seconds(median), spread, str(len(times)), ratio, peak]
            if entry["notes"]:
                cells[2] += " (" + "; ".join(entry["notes"]) + ")"
        else:
            cells = ["–", "; ".join(entry["notes"]) or "no run", "0", "–", "–"]
        print(f"| {label} | {MODES.get(mode, mode)} | {contestant} | " + " | ".join(cells) + " |")

    print()
    print("Targets:")
    checks = []

    def check(text, ok):
        checks.append(ok)
        print(f"- {text}: {'met' if ok else 'MISSED'}")

    def peers(workload, mode):
        return {k[2]: medians[k] for k in medians
                if k[0] == workload and k[1] == mode and k[2] not in (TARNWELL, TARNWELL_ONE, FLOOR)}

    for mode in MODES:
        ours = medians.get(("first", mode, TARNWELL))
        if ours is None:
            continue
        one = medians.get(("first", mode, TARNWELL_ONE))
        floor = medians.get(("first", mode, FLOOR))
        if one and floor:
            # The floor has neither the fixed pause before the post-deploy
            # stage nor the record's read and write.
            check(f"first deployment, {MODES[mode]}, 1 connection: {one / floor:.2f} × the sequential curl "
                  f"floor (at most 1.1); {(one - PAUSE) / floor:.2f} × without the fixed {PAUSE} s pause",
                  one <= 1.1 * floor)
        others = peers("first", mode)
        for peer, theirs in others.items():
            bound = {("passive", "lftp --parallel=4"): 1.0, ("sftp", "rclone sync"): 1.0}.get((mode, peer))
            if bound:
                check(f"first deployment, {MODES[mode]}: {ours / theirs:.2f} × {peer} (at most {bound})",
                      ours <= bound * theirs)
            else:
                check(f"first deployment, {MODES[mode]}: ahead of {peer} ({seconds(ours)} s against "
                      f"{seconds(theirs)} s)", ours < theirs)
    for mode in MODES:
        # One connection runs the batches as they ran before they could run
        # side by side: the incremental deployment must not have become slower.
        ours = medians.get(("incremental", mode, TARNWELL))
        one = medians.get(("incremental", mode, TARNWELL_ONE))
        if ours is not None and one:
            check(f"incremental deployment, {MODES[mode]}: {ours / one:.2f} × one connection (at most 1.05)",
                  ours <= 1.05 * one)
    for mode in MODES:
        ours = medians.get(("incremental", mode, TARNWELL))
        theirs = peers("incremental", mode).get("git-ftp")
        if ours is not None and theirs:
            check(f"incremental deployment, {MODES[mode]}: {ours / theirs:.2f} × git-ftp push (at most 3)",
                  ours <= 3 * theirs)
    for key, entry in runs.items():
        if key[0] == "memory" and key[2] == TARNWELL and entry["peaks"]:
            peak = max(entry["peaks"]) / 1024
            check(f"peak memory, {MODES.get(key[1], key[1])}: {peak:.0f} MB (at most 100 MB)", peak <= 100)

    ours = medians.get(("first", "passive", TARNWELL))
    fastest = min(peers("first", "passive").values(), default=None)
    print()
    print(f"ratio={ours / fastest:.3f}" if ours and fastest else "ratio=nan")


if __name__ == "__main__":
    main()

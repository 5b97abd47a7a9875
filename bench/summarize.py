#!/usr/bin/python3
"""Turns the raw figures of bench/run.sh into a table and bench/RESULTS.md.

Inputs in the scratch folder: machine.tsv (name, value), inventory.tsv (one
row per timed run), processes.tsv and opens.tsv (one untimed strace run per
configuration) and micro.json (Google Benchmark output, optional).
"""
import argparse
import collections
import json
import os
import statistics

LABELS = ["plain", "inventory-cold", "inventory-warm", "report-cold", "report-warm", "start-up"]
RUN_FIELDS = ["ports", "label", "run", "wall_us", "rss_kb", "cpu_ms", "rc",
              "listhbas", "attributes", "version", "hbacmd", "lspci"]
# A cold inventory over the plain script, at every size; a warm one-port
# inventory over the one-port plain script.
COLD_LIMIT = 1.05
WARM_LIMIT = 0.4
# The per-port cost between the two largest servers may exceed the one
# between the two middle ones by this factor and still count as linear.
LINEARITY_LIMIT = 1.5


def read_tsv(path):
    if not os.path.exists(path):
        return []
    with open(path) as handle:
        return [line.rstrip("\n").split("\t") for line in handle if line.strip()]


def read_text(path):
    if not os.path.exists(path):
        return ""
    with open(path) as handle:
        return handle.read()


def load_runs(scratch):
    runs = collections.defaultdict(list)
    for row in read_tsv(os.path.join(scratch, "inventory.tsv")):
        record = dict(zip(RUN_FIELDS, row))
        record = {k: (v if k == "label" else int(v or 0)) for k, v in record.items()}
        runs[(record["ports"], record["label"])].append(record)
    return runs


def median_ms(records):
    return statistics.median(r["wall_us"] for r in records) / 1000.0


def median_cpu_ms(records):
    return statistics.median(r["cpu_ms"] for r in records)


def ports_text(count):
    return f"{count} port" if count == 1 else f"{count} ports"


def load_micro(scratch):
    path = os.path.join(scratch, "micro.json")
    if not os.path.exists(path):
        return {}
    with open(path) as handle:
        document = json.load(handle)
    return {b["run_name"]: b for b in document["benchmarks"] if b.get("aggregate_name") == "median"}


def ns(value, unit):
    return value * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[unit]


def fmt_ns(value):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if value >= size:
            return f"{value / size:.3g} {unit}"
    return f"{value:.3g} ns"


class Report:
    def __init__(self, scratch, runs_wanted):
        self.machine = dict(row[:2] for row in read_tsv(os.path.join(scratch, "machine.tsv")))
        self.runs = load_runs(scratch)
        self.ports = sorted({p for p, _ in self.runs})
        self.micro = load_micro(scratch)
        self.processes = collections.defaultdict(dict)
        for ports, label, program, count in read_tsv(os.path.join(scratch, "processes.tsv")):
            self.processes[(int(ports), label)][program] = int(count)
        self.opens = {(int(r[0]), r[1]): (int(r[2]), int(r[3]))
                      for r in read_tsv(os.path.join(scratch, "opens.tsv"))}
        self.runs_wanted = runs_wanted
        self.scratch = scratch

    def median(self, ports, label):
        records = self.runs.get((ports, label))
        return median_ms(records) if records else None

    def median_cpu(self, ports, label):
        records = self.runs.get((ports, label))
        return median_cpu_ms(records) if records else None

    def failures(self):
        return [(p, l, r["run"], r["rc"]) for (p, l), rs in sorted(self.runs.items()) for r in rs if r["rc"]]

    # ---- tables ----------------------------------------------------------

    def time_table(self):
        head = ["ports"] + [f"{l} (ms)" for l in LABELS] + ["cold / plain", "warm / plain", "cold / plain (CPU)"]
        rows = []
        for p in self.ports:
            medians = [self.median(p, l) for l in LABELS]
            plain, cold, warm = medians[0], medians[1], medians[2]
            rows.append([str(p)] + [f"{m:.1f}" if m is not None else "—" for m in medians] +
                        [ratio(cold, plain), ratio(warm, plain),
                         ratio(self.median_cpu(p, "inventory-cold"), self.median_cpu(p, "plain"))])
        return head, rows

    def resource_table(self):
        head = ["ports", "run", "CPU (ms)", "peak RSS (KiB)", "hbacmd", "listhbas", "HbaAttributes", "version", "lspci",
                "all programs executed", "Listhbas.txt opens", "HbaAttrib*.txt opens"]
        rows = []
        for p in self.ports:
            for label in LABELS:
                records = self.runs.get((p, label))
                if not records:
                    continue
                counts = [f"{lo}" if lo == hi else f"{lo}–{hi}"
                          for lo, hi in (span(records, k) for k in ("hbacmd", "listhbas", "attributes", "version", "lspci"))]
                programs = self.processes.get((p, label))
                opens = self.opens.get((p, label))
                rows.append([str(p), label, str(int(median_cpu_ms(records))),
                             str(int(statistics.median(r["rss_kb"] for r in records)))] + counts +
                            [describe_programs(programs) if programs else "—",
                             str(opens[0]) if opens else "—", str(opens[1]) if opens else "—"])
        return head, rows

    def micro_table(self):
        head = ["benchmark", "median time", "median CPU"]
        rows = [[name, fmt_ns(ns(b["real_time"], b["time_unit"])), fmt_ns(ns(b["cpu_time"], b["time_unit"]))]
                for name, b in self.micro.items()]
        return head, rows

    # ---- targets -----------------------------------------------------------

    def target_warm(self):
        seen = {p: span(self.runs.get((p, "inventory-warm"), []), "hbacmd") for p in self.ports}
        met = all(hi == 0 for _, hi in seen.values()) and bool(seen)
        detail = ", ".join(f"{ports_text(p)}: {show_span(s)}" for p, s in seen.items())
        text = f"adapter-tool processes started by a warm inventory: {detail}."
        if not met:
            text += " " + self.explain_warm()
        return "A warm-cache inventory starts no adapter-tool process", met, text

    def explain_warm(self):
        parts = []
        for p in self.ports:
            records = self.runs.get((p, "inventory-warm"), [])
            for key, verb in (("listhbas", "listhbas"), ("attributes", "HbaAttributes"), ("version", "version")):
                lo, hi = span(records, key)
                if hi:
                    parts.append(f"{ports_text(p)}: {show_span((lo, hi))} × `hbacmd {verb}`")
        return "Calls seen: " + "; ".join(parts) + "."

    def target_cold(self):
        problems = []
        for p in self.ports:
            for r in self.runs.get((p, "inventory-cold"), []):
                expected = {"listhbas": 1, "attributes": p, "version": 1, "hbacmd": p + 2}
                wrong = [f"{k} {r[k]} (expected {v})" for k, v in expected.items() if r[k] != v]
                if wrong:
                    problems.append(f"{ports_text(p)}, run {r['run']}: " + ", ".join(wrong))
        met = not problems and bool(self.ports)
        text = ("every cold run started exactly one `hbacmd listhbas`, one `hbacmd HbaAttributes` per port "
                "and one `hbacmd version`." if met else "Deviations: " + "; ".join(sorted(set(problems))[:8]) + ".")
        return ("A cold inventory starts exactly one listing, one attribute query per port and one version query",
                met, text)

    def target_overhead(self):
        ratios = {p: (self.median(p, "inventory-cold"), self.median(p, "plain")) for p in self.ports}
        cold = {p: c / pl for p, (c, pl) in ratios.items() if c and pl}
        met = bool(cold) and all(r <= COLD_LIMIT for r in cold.values())
        detail = ", ".join(f"{ports_text(p)}: {r:.2f}" for p, r in cold.items())
        cpu = {p: (self.median_cpu(p, "inventory-cold"), self.median_cpu(p, "plain")) for p in self.ports}
        cpu_detail = ", ".join(f"{ports_text(p)}: {c / pl:.2f}" for p, (c, pl) in cpu.items() if c and pl)
        text = (f"median cold inventory over median plain script, wall time: {detail} (limit {COLD_LIMIT}); "
                f"CPU time of the process tree: {cpu_detail}.")
        if not met:
            text += " " + self.explain_overhead()
        return f"A cold inventory takes at most {COLD_LIMIT} times the plain script at every size", met, text

    def target_warm_one_port(self):
        name = f"A warm one-port inventory takes at most {WARM_LIMIT} of the plain script's time"
        warm, plain, start = (self.median(1, label) for label in ("inventory-warm", "plain", "start-up"))
        if not warm or not plain:
            return name, False, "the one-port server was not measured."
        met = warm / plain <= WARM_LIMIT
        text = f"median warm inventory {warm:.1f} ms over median plain script {plain:.1f} ms: {warm / plain:.2f}"
        if start:
            text += (f"; of it, {start:.1f} ms ({start / warm * 100:.0f} %) is `qdmhost --version`, the start-up "
                     "alone (exec, loading and linking the libraries, static initialisation)")
        return name, met, text + "."

    def extra_programs(self, ports):
        """Programs the cold inventory executes more often than the plain script, qdmhost itself aside."""
        host = self.processes.get((ports, "inventory-cold"), {})
        plain = self.processes.get((ports, "plain"), {})
        return {prog: n - plain.get(prog, 0) for prog, n in host.items()
                if n > plain.get(prog, 0) and prog != "qdmhost"}

    def explain_overhead(self):
        lines = []
        if self.processes:
            for p in self.ports:
                extra = self.extra_programs(p)
                if extra:
                    lines.append(f"at {ports_text(p)} qdmhost executes, beyond the plain script's programs, " +
                                 ", ".join(f"{n} × `{prog}`" for prog, n in sorted(extra.items())))
            lines.append("the `sh` are the shells of the provider's `system()` calls (`HbaAttributes` per port "
                         "and `version`), which it makes so by design; the host's `ExecForeignModule` starts "
                         "`listhbas` without a shell, the plain script starts every tool directly")
        lines += self.warm_lines()
        lines += self.listing_parse_lines()
        return "Where the time goes: " + "; ".join(lines) + "." if lines else ""

    def warm_lines(self):
        return [f"a warm inventory, which starts no adapter tool, still takes {warm:.0f} ms at {ports_text(p)} "
                f"(plain script with all its tool calls: {plain:.0f} ms)"
                for p in self.ports
                for warm, plain in [(self.median(p, "inventory-warm"), self.median(p, "plain"))]
                if warm and plain and warm > plain]

    def listing_parse_lines(self):
        lines = []
        for p in self.ports:
            bench = self.micro.get(f"BM_GetHBAInfoList/ports:{p}")
            opens = self.opens.get((p, "inventory-warm"))
            if not bench or not opens:
                continue
            parse_ns = ns(bench["cpu_time"], bench["time_unit"])
            # One look-up opens the listing twice: once for the records, once
            # for the function numbering.
            lookups = opens[0] / 2
            spent_ms = lookups * parse_ns / 1e6
            lines.append(f"at {ports_text(p)} an inventory opens the listing {opens[0]} times: ≈{lookups:.0f} "
                         f"whole-listing look-ups (`GetHBAInfo` → `GetHBAInfoList`) of {fmt_ns(parse_ns)} CPU each "
                         f"(micro-benchmark) ≈ {spent_ms:.0f} ms CPU")
        return lines

    def target_linear(self):
        medians = {p: self.median(p, "inventory-cold") for p in self.ports}
        points = sorted((p, m) for p, m in medians.items() if m is not None)
        if len(points) < 3:
            return "Time grows linearly with the number of ports", False, "fewer than three server sizes measured."
        slopes = [(b[1] - a[1]) / (b[0] - a[0]) for a, b in zip(points, points[1:])]
        factor = slopes[-1] / slopes[-2] if slopes[-2] > 0 else float("inf")
        met = factor <= LINEARITY_LIMIT
        per_port = ", ".join(f"{a[0]}→{b[0]}: {s:.1f} ms" for (a, b), s in zip(zip(points, points[1:]), slopes))
        text = (f"marginal cold-inventory cost per port {per_port}; the last interval costs {factor:.2f}× the one "
                f"before it (linear when ≤ {LINEARITY_LIMIT}).")
        plain = sorted((p, self.median(p, "plain")) for p in self.ports)
        plain_slopes = [(b[1] - a[1]) / (b[0] - a[0]) for a, b in zip(plain, plain[1:])]
        text += " Plain script for comparison: " + ", ".join(f"{s:.1f} ms" for s in plain_slopes) + " per port."
        if not met:
            text += " " + self.explain_linear()
        return "Time grows linearly with the number of ports", met, text

    def explain_linear(self):
        per_parse = []
        for p in self.ports:
            bench = self.micro.get(f"BM_GetHBAInfoList/ports:{p}")
            if bench:
                per_parse.append(f"{ports_text(p)}: {fmt_ns(ns(bench['cpu_time'], bench['time_unit']))}")
        text = ("Every port's `LinkDevice` parses the whole adapter listing again (`GetHBAInfo` → "
                "`GetHBAInfoList`, one pass over its O(ports) lines), so the inventory reads O(ports²) lines.")
        if per_parse:
            text += " One `GetHBAInfoList` (micro-benchmark, median CPU time): " + ", ".join(per_parse) + "."
        return text

    def targets(self):
        return [self.target_warm(), self.target_cold(), self.target_overhead(), self.target_warm_one_port(),
                self.target_linear()]

    # ---- output ------------------------------------------------------------

    def markdown(self):
        out = ["# Benchmark results", "",
               "Written by `bench/run.sh`; rerun it to refresh. Simulated servers of dual-port 16G adapters "
               "(`qdmsim`, one `LPe16002` per two ports), inside `sandbox/run`. "
               f"Each figure is the median of {self.runs_wanted} runs; the runs of the six kinds are interleaved.",
               "", "## Machine", ""]
        out += markdown_table(["", ""], [[k, v] for k, v in self.machine.items()])
        out += ["", "The load average is the machine's at the start of the measurements; wall times grow with it, "
                "the CPU times of the process tree much less."]
        out += ["", "## Targets", ""]
        for name, met, text in self.targets():
            out.append(f"- **{name}: {'met' if met else 'NOT met'}.** {text}")
        out += ["", "## Wall time (median, ms)", "",
                "`plain`: `bench/plain_inventory.sh` (the same tool calls, no host, no provider). "
                "`inventory-cold`/`report-cold`: `qdmhost` with a fresh work area. "
                "`inventory-warm`/`report-warm`: the run right after, within the cache hour. "
                "`start-up`: `qdmhost --version`, the executable's start-up alone.", ""]
        out += markdown_table(*self.time_table())
        out += ["", "## Processes, files and memory", "",
                "Tool calls from the simulator's call log (range over the runs); programs executed and file opens "
                "from one extra untimed run under `strace -ff`; peak RSS is that of the largest process "
                "(`/usr/bin/time`).", ""]
        out += markdown_table(*self.resource_table())
        out += self.startup_section()
        failures = self.failures()
        if failures:
            out += ["", "## Failed runs", ""] + [f"- {ports_text(p)}, {l}, run {r}: exit {rc}" for p, l, r, rc in failures]
        if self.micro:
            out += ["", "## Micro-benchmarks (`build-bench/bench/qdm_bench`, median of 3 repetitions)", ""]
            out += markdown_table(*self.micro_table())
        return "\n".join(out) + "\n"

    def startup_section(self):
        syscalls = read_text(os.path.join(self.scratch, "startup-syscalls.txt"))
        libraries = read_text(os.path.join(self.scratch, "startup-libraries.txt")).strip()
        if not syscalls:
            return []
        out = ["", "## Where a warm one-port inventory spends its time", "",
               f"It starts no process. It loads {libraries or '?'} shared objects (qdmhost, the three host "
               "libraries, the provider, and the Debian libraries they link: libarchive alone brings libxml2, ICU, "
               "nettle, acl, lzma, zstd, lz4, bz2 and zlib), then reads the device table, the PCI functions in "
               "sysfs, the listing and attribute caches and writes the trace log, a line at a time. `start-up` "
               "above is the loading alone; what is left is the work. The system calls of one run "
               "(`strace -c -f`):", "", "```"]
        return out + syscalls.rstrip("\n").splitlines()[:16] + ["```"]

    def console(self):
        lines = [format_plain(*self.time_table()), ""]
        for name, met, _ in self.targets():
            lines.append(f"[{'met' if met else 'NOT met'}] {name}")
        return "\n".join(lines)


def span(records, key):
    values = [r[key] for r in records]
    return (min(values), max(values)) if values else (0, 0)


def show_span(pair):
    lo, hi = pair
    return str(lo) if lo == hi else f"{lo}–{hi}"


def ratio(a, b):
    return f"{a / b:.2f}" if a and b else "—"


def describe_programs(programs):
    return ", ".join(f"{name} {count}" for name, count in sorted(programs.items(), key=lambda kv: (-kv[1], kv[0])))


def markdown_table(head, rows):
    return ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)] + ["| " + " | ".join(r) + " |" for r in rows]


def format_plain(head, rows):
    widths = [max(len(str(c)) for c in col) for col in zip(head, *rows)]
    return "\n".join("  ".join(str(c).rjust(w) for c, w in zip(row, widths)) for row in [head] + rows)


# What follows this line in RESULTS.md is written by hand (profiles, paired
# measurements) and kept when the figures above are rewritten.
NOTES_MARKER = "<!-- hand-written notes below: kept by bench/summarize.py -->"


def kept_notes(path):
    text = read_text(path)
    at = text.find(NOTES_MARKER)
    return "\n" + text[at:] if at >= 0 else ""


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--scratch", required=True)
    parser.add_argument("--runs", type=int, required=True)
    parser.add_argument("--out", required=True)
    args = parser.parse_args()
    report = Report(args.scratch, args.runs)
    notes = kept_notes(args.out)
    with open(args.out, "w") as handle:
        handle.write(report.markdown() + notes)
    print(report.console())
    print(f"\nwritten: {args.out}")


if __name__ == "__main__":
    main()

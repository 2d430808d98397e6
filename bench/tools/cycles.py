"""Cycles of a section from windows of the sequence that it executed.

A window is some 768 instructions with 256 before them that warm the processor up. Its cycles are those of both less those of the
first part, by llvm-mca's models of three processors and by the A55 of cortex_a55.py. All loads hit the first-level cache and
no branch is mispredicted.
"""
import collections
import concurrent.futures
import re
import shutil
import subprocess

import cortex_a55

PROCESSORS = ("cortex-a53", "cortex-a55", "neoverse-n1")
GUIDE = "a55-guide"  # the figure of record
WINDOWS = 40
FEATURES = "-mattr=+v8.2a,+fullfp16,+dotprod,+crypto"
REGIONS_A_RUN = 400
LEAST_SHARE_OF_A_LOOP = 0.05  # of the instructions of a section

BLOCK = re.compile(r"^block (\d+) hits=(\d+) symbol=(\S*) code=([\da-f,]+)$", re.MULTILINE)
WINDOW = re.compile(r"^window ([\d ]*)(?:\|([\d ]*))?$", re.MULTILINE)

_text_of_word = {}


def tool(name):
    """llvm-mca or llvm-mc of the release whose models the figures stand for, or of any other, or None."""
    return shutil.which(name + "-19") or shutil.which(name)


class Section:
    """The counter's report on one section: blocks {number: (hits, symbol, words)} and windows [(warm-up, measured)]."""

    def __init__(self, report):
        self.total = int(re.search(r"icount total=(\d+)", report).group(1))
        self.blocks = {int(number): (int(hits), symbol, tuple(int(word, 16) for word in code.split(",")))
                       for number, hits, symbol, code in BLOCK.findall(report)}
        windows = [([int(n) for n in warm.split()], [int(n) for n in measured.split()])
                   for warm, measured in WINDOW.findall(report)]
        # A section shorter than a window is measured whole.
        self.windows = [window for window in windows if window[1]] or [([], windows[0][0])]

    def words(self, numbers):
        return [word for number in numbers for word in self.blocks[number][2]]


def lines_of(words):
    """The instructions of machine words as text; words that the disassembler does not know become nops."""
    unknown = sorted({word for word in words if word not in _text_of_word})
    for first in range(0, len(unknown), 4000):
        part = unknown[first:first + 4000]
        octets = "\n".join(" ".join(f"0x{octet:02x}" for octet in word.to_bytes(4, "little")) for word in part)
        result = subprocess.run([tool("llvm-mc"), "--disassemble", "-triple=aarch64-linux-gnu", FEATURES], input=octets,
                                capture_output=True, text=True, check=True)
        invalid = {int(number) for number in re.findall(r"<stdin>:(\d+):\d+: warning: invalid", result.stderr)}
        text = iter([line.strip() for line in result.stdout.split("\n") if line.startswith("\t") and ".text" not in line])
        for number, word in enumerate(part, 1):
            _text_of_word[word] = "nop" if number in invalid else next(text)
    return [_text_of_word[word] for word in words]


def by_llvm(processor, bodies):
    """Total cycles of each list of lines."""
    cycles = []
    for first in range(0, len(bodies), REGIONS_A_RUN):
        part = bodies[first:first + REGIONS_A_RUN]
        text = "".join(f"# LLVM-MCA-BEGIN r{k}\n" + "\n".join(body or ["nop"]) + f"\n# LLVM-MCA-END r{k}\n"
                       for k, body in enumerate(part))
        result = subprocess.run([tool("llvm-mca"), "-mtriple=aarch64-linux-gnu", "-mcpu=" + processor, FEATURES, "-iterations=1",
                                 "-instruction-info=0", "-resource-pressure=0", "-skip-unsupported-instructions=any"],
                                input=text, capture_output=True, text=True, check=False)
        found = [int(total) for total in re.findall(r"Total Cycles:\s+(\d+)", result.stdout)]
        if len(found) != len(part):
            raise RuntimeError(f"llvm-mca: {processor}: {len(found)} of {len(part)} regions: {result.stderr[:500]}")
        cycles += found
    return cycles


def by_guide(bodies):
    return [cortex_a55.cycles([cortex_a55.parse(line) for line in body]) for body in bodies]


def of_section(section, units, processors=PROCESSORS):
    """Cycles a unit on each processor and by the guide, and the efficiency: the guide's bound over its cycles."""
    measured = [lines_of(section.words(window)) for _, window in section.windows]
    bodies = []
    for (warm, _), lines in zip(section.windows, measured):
        warm_lines = lines_of(section.words(warm))
        bodies += [warm_lines + lines, warm_lines]
    instructions = sum(len(lines) for lines in measured)
    scale = section.total / instructions / units

    def differences(cycles):
        return sum(cycles[i] - (cycles[i + 1] if bodies[i + 1] else 0) for i in range(0, len(cycles), 2))

    with concurrent.futures.ThreadPoolExecutor() as pool:
        of_processors = pool.map(lambda processor: by_llvm(processor, bodies), processors)
        figures = {processor: differences(found) * scale for processor, found in zip(processors, of_processors)}
    guide = differences(by_guide(bodies))
    bound = sum(cortex_a55.bound([cortex_a55.parse(line) for line in lines]) for lines in measured)
    return figures | {GUIDE: guide * scale, "bound": bound * scale, "efficiency": bound / guide}


def successors(section):
    following = collections.defaultdict(collections.Counter)
    for warm, measured in section.windows:
        sequence = warm + measured
        for here, there in zip(sequence, sequence[1:]):
            following[here][there] += 1
    return following


def path_from(first, following, blocks):
    """The loop through a block: its most likely successors until it comes back, or the block alone."""
    path = [first]
    while len(path) < 12 and following[path[-1]]:
        choices = following[path[-1]]
        then, times = choices.most_common(1)[0]
        if choices[first] >= 0.4 * sum(choices.values()):
            return path
        if times < 0.5 * sum(choices.values()) or then in path or then not in blocks:
            break
        path.append(then)
    return [first]


def hot_loops(section):
    """(symbol, instructions of a turn, share of the section, cycles of a turn by the guide, efficiency), the hottest first."""
    following, seen, loops = successors(section), set(), []
    weight = {number: hits * len(words) for number, (hits, _, words) in section.blocks.items()}
    for number in sorted(weight, key=lambda n: -weight[n]):
        if number in seen:
            continue
        path = path_from(number, following, section.blocks)
        if seen.intersection(path):
            path = [number]
        share = sum(weight[block] for block in path) / section.total
        seen.update(path)
        if share < LEAST_SHARE_OF_A_LOOP:
            continue
        turn = [cortex_a55.parse(line) for line in lines_of(section.words(path))]
        turns = 60
        cycles = cortex_a55.cycles(turn * turns) / turns
        loops.append((section.blocks[number][1], len(turn), share, cycles, cortex_a55.bound(turn) / cycles))
    return sorted(loops, key=lambda loop: -loop[2])

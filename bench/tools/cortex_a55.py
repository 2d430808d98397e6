"""A Cortex-A55 after Arm's published optimisation guide: what an instruction takes, and how two slots in order take them.

Beside llvm-mca's model, because that takes a 16-byte load for one cycle of the load pipe (the guide: two, and both vector pipes),
a pair of them for six (four), and 128-bit products of floats for two a cycle (one).

Units: ld, st and b (load, store and branch pipes), a (two for integers), v (two of 64 bits for vectors; an operation on 128
bits takes both, written vv), mac (integer products), div and idiv.
"""
import functools
import re

REGISTER = re.compile(r"\b(?:([xw])(\d+)|([vqdshb])(\d+)(?:\.\d*[bhsdq])?|(w?sp)|(xzr|wzr))\b")
REGISTER_LIST = re.compile(r"v(\d+)(\.\w+) - v(\d+)\.\w+")
WHOLE_VECTOR = re.compile(r"\.(16b|8h|4s|2d)\b")
BRANCH = re.compile(r"^(b|b\..*|cbn?z|tbn?z|br|blr|bl|ret)$")
READS_ITS_RESULT = re.compile(
    r"^(f?ml[as]l?2?|[su]ml[as]l2?|sqdml[as]l2?|[su]dot|[su]aba(l2?)?|[su]adalp|[su]r?sra|sl?i|sri|sli|bif|bit|bsl|tbx|movk|bfi|"
    r"bfxil|bfm|suqadd|usqadd|sqrdml[as]h|(sq|uq)?xtn2|sqxtun2|(sq|uq)?r?shru?n2|sqr?shrun2|uqr?shrn2|r?addhn2|r?subhn2|"
    r"fcvtx?n2|aes[de]|sha\w+)$")
SETS_FLAGS = re.compile(r"^(cmp|cmn|tst|ccmp|ccmn|fcmpe?|fccmpe?|adds|subs|ands|bics|adcs|sbcs|negs|ngcs)$")
READS_FLAGS = re.compile(r"^(b\.|csel|cset|csetm|csinc|csinv|csneg|cinc|cinv|cneg|fcsel|ccmp|ccmn|fccmp|adc|sbc|ngc)")
NO_RESULT = re.compile(
    r"^(cmp|cmn|tst|ccmp|ccmn|fcmpe?|fccmpe?|b|b\..*|cbn?z|tbn?z|br|blr|bl|ret|nop|prfm|prfum|svc|hint|dmb|isb|dc|msr)$")

# Vector operations by the cycles until another vector operation has their result; what is not named takes four.
VECTOR_LATENCIES = (
    (1, re.compile(r"^(and|orr|eor|bic|orn|mvn|bif|bit|bsl|not)$")),
    (3, re.compile(r"^(addv|addp|[su]addl?v|[su]addlp|addhn|subhn|abs|[su]q(add|sub)|sqneg|suqadd|usqadd|[su]abdl?2?|[su]rshr|"
                   r"rshrn|[su]sra|srshl|urshl|cmtst)")),
    (4, re.compile(r"^([su](min|max)v|fm(ax|in)(nm)?p?)")),
    (2, re.compile(r"^(zip|uzp|trn|ext|tbl|tbx|rev|xtn|dup|mov|umov|smov|fmov|ins|movi|mvni|shl|[su]shr|[su]shll?2?|[su]xtl2?|"
                   r"shrn2?|sli|sri|cm\w\w|[su]min|[su]max|add|sub|neg|[su]r?hadd|[su]hsub|fcsel|cls|clz|cnt|sshl|ushl)")),
    (3, re.compile(r"^([su](add|sub)[lw]2?)")),
)
SHIFTED_OPERAND = re.compile(r"(lsl|lsr|asr|uxt|sxt|ror)")
SHIFT = re.compile(r"^(lsl|lsr|asr|ror|[su]bfi?[zx]|bfi|bfxil|[su]xt[bhw]|rev|clz|extr)")
PRODUCT = re.compile(r"^(mul|mneg|madd|msub|[su]mull|[su]madd?l|[su]msubl|[su]mulh|umaddl|smaddl)$")


class Instruction:
    """What it reads and writes, its cycles of each unit, and the cycles until its result is there."""
    __slots__ = ("text", "operation", "results", "operands", "is_load", "is_store", "base", "is_whole", "units", "latency")


def registers(text):
    """Names of the registers in the order of the text, lists written out; all views of a register have one name."""
    text = REGISTER_LIST.sub(
        lambda m: ", ".join(f"v{k % 32}{m.group(2)}"
                            for k in range(int(m.group(1)), int(m.group(3)) + (33 if int(m.group(3)) < int(m.group(1)) else 1))),
        text)
    names = []
    for match in REGISTER.finditer(text):
        if match.group(1):
            names.append("x" + match.group(2))
        elif match.group(3):
            names.append("v" + match.group(4))
        elif match.group(5):
            names.append("sp")
    return names


@functools.lru_cache(None)
def parse(text):
    """The instruction of a line of assembly."""
    instruction = Instruction()
    operation, _, operands = text.partition("\t")
    operation, operands = operation.strip(), operands.strip()
    instruction.text, instruction.operation, instruction.base = text, operation, None
    instruction.is_load, instruction.is_store = operation.startswith("ld"), operation.startswith("st")
    results, reads = [], []
    if instruction.is_load or instruction.is_store or operation.startswith("prf"):
        results, reads = memory_registers(instruction, operands)
    else:
        names = registers(operands)
        if NO_RESULT.match(operation):
            reads += names
        elif names:
            results.append(names[0])
            reads += names[1:]
            writes_a_lane = re.match(r"^\w+\.\w\[\d+\]", operands.split(",")[0].strip())
            alters_bits = operation in ("orr", "bic") and re.match(r"^v\d+\.\w+, #", operands)
            if READS_ITS_RESULT.match(operation) or writes_a_lane or alters_bits:
                reads.append(names[0])
        if SETS_FLAGS.match(operation):
            results.append("flags")
        if READS_FLAGS.match(operation):
            reads.append("flags")
        if operation in ("bl", "blr"):
            results.append("x30")
    instruction.results, instruction.operands = tuple(results), tuple(reads)
    instruction.is_whole = bool(WHOLE_VECTOR.search(operands))
    instruction.units, instruction.latency = cost(instruction, operands)
    return instruction


def memory_registers(instruction, operands):
    """Results and operands of a load, a store or a prefetch."""
    bracket = "[x" if "[x" in operands else "[sp" if "[sp" in operands else ""
    data_text, _, address_text = operands.partition(bracket) if bracket else (operands, "", "")
    address_text = bracket + address_text
    data, address = registers(data_text), registers(address_text)
    instruction.base = address[0] if address else None
    results, reads = [], []
    if instruction.is_load:
        results += data
        if re.search(r"\}\[\d+\]", data_text):
            reads += data
    else:
        reads += data
    reads += address
    if address and ("!" in address_text or re.search(r"\], (#|x)", address_text)):
        results.append(address[0])
    if re.match(r"^st(l?x|lx)", instruction.operation):
        results += data[:1]
    return results, reads


def cost(instruction, operands):
    """(unit, cycles) pairs, and the latency."""
    vectors = sum(name[0] == "v" for name in registers(operands))
    if instruction.is_load:
        return load_cost(instruction, operands, vectors)
    if instruction.is_store:
        return store_cost(instruction, operands, vectors)
    if BRANCH.match(instruction.operation):
        return (("b", 1),), 1
    if any(name[0] == "v" for name in instruction.results + instruction.operands):
        return vector_cost(instruction, operands, vectors)
    return integer_cost(instruction.operation, operands)


def is_whole_access(instruction, operands):
    return instruction.is_whole or bool(re.match(r"^(\{ )?q\d", operands))


def is_structure_lane(operands):
    """Whether a structure's access is to one lane."""
    return "[" in operands.split("}")[-1].split(",")[0]


def load_cost(instruction, operands, vectors):
    operation = instruction.operation
    whole = is_whole_access(instruction, operands)
    if vectors == 0:
        if operation.startswith("ldpsw"):
            return (("ld", 2),), 4
        if operation in ("ldp", "ldnp") and operands[0] == "x":
            return (("ld", 2),), 4
        return (("ld", 1),), 3
    if operation in ("ldp", "ldnp"):
        cycles, latency = (4, 6) if whole else (2, 4)
    elif operation in ("ldr", "ldur"):
        cycles, latency = (2, 4) if whole else (1, 3)
    elif is_structure_lane(operands) or operation.endswith("r"):
        cycles, latency = (1, 4) if operation[2] == "1" else (2, 5)
    else:
        parts = operation[2]
        cycles = {"1": vectors * (2 if whole else 1), "2": 4 if whole else 2, "3": 6 if whole else 3, "4": 9 if whole else 4}[parts]
        latency = cycles + (2 if parts == "1" else 3)
    return (("ld", cycles),) + ((("vv", cycles),) if whole else ()), latency


def store_cost(instruction, operands, vectors):
    operation = instruction.operation
    whole = is_whole_access(instruction, operands)
    if vectors == 0:
        return (("st", 1),), 1
    if operation in ("stp", "stnp"):
        cycles = 2 if whole else 1
    elif operation in ("str", "stur"):
        cycles = 1
    elif is_structure_lane(operands):
        cycles = 1 if operation[2] == "1" else 2
    else:
        cycles = {"1": max(1, vectors if whole else (vectors + 1) // 2), "2": 2, "3": 3, "4": 5 if whole else 3}[operation[2]]
    return (("st", cycles),) + ((("vv", cycles),) if whole else ()), 1


def vector_cost(instruction, operands, vectors):
    operation = instruction.operation
    pipes = "vv" if instruction.is_whole else "v"
    if operation in ("fdiv", "fsqrt"):
        is_double = re.search(r"\bd\d|\.2d", operands)
        return (("div", 19 if is_double else 10), (pipes, 1)), 22 if is_double else 13
    if operation in ("tbl", "tbx") and vectors > 3:
        return ((pipes, vectors - 2),), vectors - 1
    if operation in ("fcmp", "fcmpe"):
        return ((pipes, 1),), 3
    latency = next((cycles for cycles, pattern in VECTOR_LATENCIES if pattern.match(operation)), 4)
    return ((pipes, 1),), latency


def integer_cost(operation, operands):
    if PRODUCT.match(operation):
        cycles = 1
        if operation[1:] == "mulh":
            cycles = 4
        elif operation in ("mul", "mneg", "madd", "msub") and operands[0] == "x":
            cycles = 2
        return (("mac", cycles),), 2 + cycles
    if operation in ("sdiv", "udiv"):
        return (("idiv", 8),), 8
    if operation == "nop":
        return (("a", 1),), 1
    return (("a", 1),), 2 if SHIFTED_OPERAND.search(operands) or SHIFT.match(operation) else 1


def cycles(instructions):
    """Cycles of a straight run: two a cycle in order, each when its operands and units are there."""
    free = dict.fromkeys(("ld", "st", "b", "mac", "idiv", "div", "v0", "v1", "a0", "a1"), 0)
    ready, from_integer_unit = {}, {}
    cycle, slot, last_vector_store, end = 0, 0, -9, 0
    for instruction in instructions:
        start = cycle if slot < 2 else cycle + 1
        is_memory = instruction.is_load or instruction.is_store
        for name in instruction.operands:
            there = ready.get(name, 0)
            if is_memory and name == instruction.base and from_integer_unit.get(name):
                there += 1
            start = max(start, there)
        takes_both = False
        for unit, _ in instruction.units:
            if unit == "vv":
                takes_both = True
                start = max(start, free["v0"], free["v1"])
            elif unit in ("v", "a"):
                start = max(start, min(free[unit + "0"], free[unit + "1"]))
            else:
                start = max(start, free[unit])
        if takes_both and start == cycle and slot > 0:
            start += 1  # 128-bit operations issue from the first slot
        is_vector_store = instruction.is_store and takes_both
        if is_vector_store and start == last_vector_store + 1:
            start += 1
        if start > cycle:
            cycle, slot = start, 0
        slot += 1
        if slot > 2:
            cycle += 1
            slot, start = 1, cycle
        for unit, busy in instruction.units:
            if unit == "vv":
                free["v0"] = free["v1"] = start + busy
            elif unit in ("v", "a"):
                first, second = unit + "0", unit + "1"
                free[first if free[first] <= start else second] = start + busy
            else:
                free[unit] = start + busy
        if is_vector_store:
            last_vector_store = start
        is_integer = instruction.units[0][0] == "a"
        for name in instruction.results:
            if is_memory and name == instruction.base:
                ready[name], from_integer_unit[name] = start + 1, False
            else:
                ready[name], from_integer_unit[name] = start + instruction.latency, is_integer
        end = max(end, start + 1)
    return end


def bound(instructions):
    """The cycles that the units need at least."""
    use = dict.fromkeys(("ld", "st", "b", "mac", "div", "idiv", "vv", "v", "a"), 0)
    for instruction in instructions:
        for unit, busy in instruction.units:
            use[unit] += busy
    return max(len(instructions) / 2, use["ld"], use["st"], use["b"], use["mac"], use["div"], use["idiv"],
               use["vv"] + use["v"] / 2, use["a"] / 2)

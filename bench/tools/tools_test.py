"""Tests of what the benchmark scripts reckon; run by CTest."""
import unittest

import cortex_a55
import cycles
import sweep


def cycles_of(*lines):
    return cortex_a55.cycles([cortex_a55.parse(line) for line in lines])


class CortexA55(unittest.TestCase):

    def test_two_independent_integer_instructions_go_in_one_cycle(self):
        self.assertEqual(cycles_of(*(f"add\tx{i}, x{i}, #1" for i in range(10))), 5)

    def test_a_chain_of_additions_takes_a_cycle_each(self):
        self.assertEqual(cycles_of(*["add\tx0, x0, x1"] * 10), 10)

    def test_a_load_of_16_bytes_keeps_the_pipe_for_two_cycles(self):
        body = [cortex_a55.parse(f"ldr\tq{i}, [x0, #{16 * i}]") for i in range(8)]
        self.assertEqual(cortex_a55.bound(body), 16)

    def test_a_product_of_whole_vectors_takes_both_pipes_and_is_there_after_four_cycles(self):
        chain = ["fmul\tv0.4s, v0.4s, v1.4s"] * 5
        self.assertEqual(cycles_of(*chain), 17)
        side_by_side = [f"fmul\tv{i}.4s, v{i}.4s, v31.4s" for i in range(5)]
        self.assertEqual(cycles_of(*side_by_side), 5)

    def test_halves_of_vectors_go_two_a_cycle(self):
        self.assertEqual(cycles_of(*(f"fmul\tv{i}.2s, v{i}.2s, v31.2s" for i in range(6))), 3)

    def test_an_accumulation_reads_its_result(self):
        self.assertIn("v0", cortex_a55.parse("fmla\tv0.4s, v1.4s, v2.4s").operands)
        self.assertNotIn("v0", cortex_a55.parse("fmul\tv0.4s, v1.4s, v2.4s").operands)

    def test_a_list_of_registers_is_all_of_them(self):
        self.assertEqual(cortex_a55.parse("ld4\t{ v30.16b - v1.16b }, [x0], #64").results, ("v30", "v31", "v0", "v1", "x0"))


class Sections(unittest.TestCase):

    def test_a_loop_is_found_by_what_follows_each_block(self):
        section = cycles.Section("icount total=40 vec=0\nwindow 1 | 2 3 2 3 2 3 4\n"
                                 "block 1 hits=1 symbol=f code=d503201f\nblock 2 hits=10 symbol=f code=8b010000,8b010000\n"
                                 "block 3 hits=10 symbol=f code=8b010000,8b010000\nblock 4 hits=1 symbol=f code=d503201f\n")
        following = cycles.successors(section)
        self.assertEqual(cycles.path_from(2, following, section.blocks), [2, 3])
        self.assertEqual(cycles.path_from(4, following, section.blocks), [4])

    def test_a_section_shorter_than_a_window_is_measured_whole(self):
        section = cycles.Section("icount total=2 vec=0\nwindow 1 1\nblock 1 hits=2 symbol= code=d503201f\n")
        self.assertEqual(section.windows, [([], [1, 1])])


class RecordedCounts(unittest.TestCase):

    def test_counts_within_three_percent_pass(self):
        self.assertEqual(sweep.moved({"a": 1000, "b": 100}, {"a": 1030, "b": 97}), [])

    def test_what_costs_more_or_less_is_named(self):
        sentences = sweep.moved({"a": 1000, "b": 1000}, {"a": 1031, "b": 969})
        self.assertEqual(sentences, ["a: 1031 instructions, recorded 1000, +3.1%", "b: 969 instructions, recorded 1000, -3.1%"])

    def test_a_case_that_is_gone_is_named(self):
        self.assertEqual(sweep.moved({"a": 1000}, {}), ["a: the sweep has no such case"])


if __name__ == "__main__":
    unittest.main()

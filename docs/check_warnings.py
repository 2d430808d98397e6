"""Runs Doxygen on faulty.h: it has to fail, and to name both faults."""

import subprocess
import sys

result = subprocess.run(sys.argv[1:], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
print(result.stdout)
faults = ["argument 'middle' of command @param is not found", "parameter 'right'"]
sys.exit(0 if result.returncode and all(fault in result.stdout for fault in faults) else 1)

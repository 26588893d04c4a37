"""Where the benchmark scripts find the build and the tests' helpers: importing this module puts
tests/support on the import path and tells the namespace helpers which wine-run to use."""
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build")
WINE_RUN = os.path.join(BUILD, "wine-run")
sys.path.insert(0, os.path.join(ROOT, "tests", "support"))
os.environ.setdefault("VEY_WINE_RUN", WINE_RUN)  # read by the namespace helpers when imported

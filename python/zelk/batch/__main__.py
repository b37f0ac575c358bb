"""python -m zelk.batch: the zelk-batch command."""
import sys

from .cli import main

# Worker processes that a local cluster spawns import this module again: only the
# command itself runs it.
if __name__ == "__main__":
    sys.exit(main())

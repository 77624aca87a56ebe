import os
import sys

# The Python binding serves as the reference: python/ of this source tree.
sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))), "python"))

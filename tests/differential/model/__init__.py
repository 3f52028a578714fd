"""An independent model of the library's decisions, fed with the same cases as the library."""

from .cases import run_case

__all__ = ["run_case"]

// The one source of velazce_test_pch: a precompiled header belongs to a target with a source.

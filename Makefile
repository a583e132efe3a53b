# The commands of the project; `make` alone lists them. Each sets up what it needs.
SHELL := /bin/bash
.DEFAULT_GOAL := help

# The first of these interpreters that serves, with its version: from the path, or one of pyenv's.
find = $(shell for name in $(1); do for path in $$(command -v $$name) $$HOME/.pyenv/versions/*/bin/$$name; do \
  "$$path" -c 'import sys; v = sys.version_info[:2]; (3, 11) <= v <= (3, 13) and print(sys.argv[1], "%d.%d" % v)' "$$path" \
  2>/dev/null | grep . && exit; done; done)
FOUND := $(call find,python3.11 python3.12 python3.13 python3 python)
GIVEN := $(if $(PYTHON),$(call find,$(PYTHON)),$(FOUND))
override PYTHON := $(word 1,$(GIVEN))
VERSION := $(word 2,$(GIVEN))
other_interpreters = $(foreach version,$(filter-out $(VERSION),3.11 3.12 3.13),$(word 1,$(call find,python$(version))))
# Each version has an environment of its own; .venv is that of the interpreter that is found unasked.
VENV := .venv$(if $(filter $(VERSION),$(word 2,$(FOUND))),,-$(VERSION))
export VENV
BIN := $(VENV)/bin
PIP := $(BIN)/python -m pip --disable-pip-version-check
NATIVE_SOURCES := CMakeLists.txt $(wildcard src/*/*.cpp src/*/*.h)
PACKAGE_SOURCES := pyproject.toml $(NATIVE_SOURCES) $(wildcard functions/*) $(wildcard cli/*/*.py cli/*/*/*.json)
PYTHON_TREES := cli tests benchmarks examples scripts docs reference
OTHER_PYTHONS := $(foreach version,$(filter-out $(VERSION),3.12 3.13),build/python$(version)/ready)

# What pytest and Matplotlib would leave in /tmp and in the home folder.
export PYTEST_DEBUG_TEMPROOT := $(CURDIR)/build
export MPLCONFIGDIR := $(CURDIR)/build/matplotlib

.PHONY: help demo test test-others lint format sanitize harden harden-quick mutants wheel compat bench bench-check docs stats clean require
.DELETE_ON_ERROR:

help: ## List the commands
	@grep -hE '^[a-z-]+:.*## ' $(MAKEFILE_LIST) | sed -E 's/:.*## /\t/' | expand -t 14

require:
	@[ -w . ] || { echo "This folder cannot be written to, and .venv and build are made in it: work in a clone of your own"; exit 1; }
	@[ -n "$(PYTHON)" ] \
	  || { echo "CPython 3.11, 3.12 or 3.13 is needed: put one on the path, or say make PYTHON=/path/to/python3.13"; exit 1; }
	@$(PYTHON) -c 'import os, sys, sysconfig; sys.exit(not os.path.exists(os.path.join(sysconfig.get_path("include"), "Python.h")))' \
	  || { echo "The headers of CPython $(VERSION) are missing (Debian: the package python$(VERSION)-dev)"; exit 1; }

$(VENV)/tools: pyproject.toml | require
	@scripts/compiler.sh
	@$(PYTHON) -m venv $(VENV) || { echo "python -m venv does not work (Debian: the package python$(VERSION)-venv)"; exit 1; }
	$(PIP) install --quiet 'pip>=25.1'
	$(PIP) install --quiet --group build --group test --group cli
	@touch $@

$(VENV)/lint-tools: $(VENV)/tools
	$(PIP) install --quiet --group lint --group test --group bench --group wheel
	@touch $@

$(VENV)/bench-tools: $(VENV)/tools
	$(PIP) install --quiet --group bench
	@touch $@

$(VENV)/wheel-tools: $(VENV)/tools
	$(PIP) install --quiet --group wheel
	@touch $@

$(VENV)/harden-tools: $(VENV)/tools
	$(PIP) install --quiet --group harden --group lint
	@touch $@

# Without what its other modes need: among that is a package that hides the standard library's typing.
$(VENV)/mutants-tools: $(VENV)/tools
	$(PIP) install --quiet --no-deps 'universalmutator>=1.14'
	@touch $@

$(VENV)/docs-tools: $(VENV)/tools
	$(PIP) install --quiet --group docs
	@touch $@

# The build directory stays, so that a second run compiles only what changed.
$(VENV)/installed: $(PACKAGE_SOURCES) $(VENV)/tools
	@scripts/compiler.sh
	$(PIP) install --quiet --no-build-isolation --no-deps -C cmake.define.TYPED_SHAPES_WERROR=ON .
	@touch $@

# Interpreters of other versions that happen to be on the machine, for the test that loads the module there.
build/python3.%/ready:
	@mkdir -p $(@D)
	@python="$(word 1,$(call find,python3.$*))"; \
	  if [ -n "$$python" ]; then "$$python" -m venv $(@D)/venv && $(@D)/venv/bin/pip -q --disable-pip-version-check install numpy || rm -rf $(@D)/venv; fi
	@touch $@

demo: $(VENV)/installed ## Build everything and run the main job on real payloads
	$(BIN)/python scripts/demo.py

test: $(VENV)/installed $(OTHER_PYTHONS) ## Build everything and run the tests; PYTHON=python3.13 does it with another version
	$(BIN)/python -m pytest $(PYTEST_ARGS)

test-others: ## The same with the other versions of CPython that are on the machine
	@printf '%s\n' $(other_interpreters) | xargs -r -P 2 -I{} $(MAKE) --no-print-directory test PYTHON={}

lint: $(VENV)/installed $(VENV)/lint-tools ## Check format, types and the C++ rules (of what changed; TIDY_ARGS=--all: of all)
	$(BIN)/clang-format --dry-run --Werror $(wildcard src/*/*.cpp src/*/*.h)
	$(BIN)/ruff format --check $(PYTHON_TREES) functions
	$(BIN)/ruff check $(PYTHON_TREES) functions
	$(BIN)/mypy cli scripts examples benchmarks/run.py benchmarks/worker.py reference/__init__.py \
	  tests/typing_surface.py
	$(BIN)/python -m mypy.stubtest quillmere.functions
	$(BIN)/basedpyright --level error tests/typing_surface.py examples
	$(BIN)/python scripts/doc_code.py
	$(BIN)/mypy build/doc_code
	$(BIN)/basedpyright --level error build/doc_code
	$(BIN)/python scripts/source_rules.py
	$(BIN)/python scripts/tidy.py $(TIDY_ARGS)

format: $(VENV)/lint-tools ## Format all sources
	$(BIN)/clang-format -i $(wildcard src/*/*.cpp src/*/*.h)
	$(BIN)/ruff format --quiet $(PYTHON_TREES) functions
	$(BIN)/ruff check --quiet --fix $(PYTHON_TREES) functions

sanitize: $(VENV)/installed ## Run the tests under AddressSanitizer and UndefinedBehaviorSanitizer
	scripts/sanitize.sh $(PYTEST_ARGS)

harden: $(VENV)/installed $(VENV)/harden-tools $(OTHER_PYTHONS) ## Try everything to break the module; takes two hours, writes docs/reliability.md
	$(BIN)/python tests/harden/run.py $(HARDEN_ARGS)

mutants: $(VENV)/mutants-tools ## Plant small faults and see whether the tests notice: MUTANTS_ARGS="--count 60 --seed 1"
	$(BIN)/python scripts/mutants.py $(MUTANTS_ARGS)

harden-quick: $(VENV)/installed $(VENV)/harden-tools $(OTHER_PYTHONS) ## The subset of harden that fits into every CI run
	$(BIN)/python tests/harden/run.py --quick $(HARDEN_ARGS)

wheel: $(VENV)/wheel-tools ## Build the sdist and a wheel for each version into dist/ (WHEEL_ARGS=--check: twice, and compare)
	$(BIN)/python scripts/wheel.py $(WHEEL_ARGS) $(other_interpreters)

compat: wheel $(OTHER_PYTHONS) ## Run the tests on each wheel with several versions of NumPy, the oldest and the newest among them
	$(BIN)/python scripts/compat.py $(other_interpreters) -- $(PYTEST_ARGS)

bench: $(VENV)/installed $(VENV)/bench-tools ## Time the module against plain Python and its peers
	$(BIN)/python benchmarks/run.py $(BENCH_ARGS)

bench-check: $(VENV)/installed ## Compare instruction counts with the committed ones
	$(BIN)/python benchmarks/instructions.py $(BENCH_ARGS)

docs: $(VENV)/installed $(VENV)/docs-tools ## Run the examples of the documentation and build its pages into build/docs
	$(BIN)/python -m pytest -q tests/test_docs.py
	$(BIN)/python -m sphinx -b html -q -a -E -n -W --keep-going -d build/doctrees docs build/docs

stats: ## Print the sizes of code and tests
	@$(PYTHON) scripts/stats.py

clean: ## Remove everything that was made
	rm -rf .venv .venv-3.* build dist .hypothesis .pytest_cache .mypy_cache .ruff_cache

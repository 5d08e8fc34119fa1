# The front door: each target installs what it needs (Debian packages, with sudo where not root), builds
# and runs. The building itself is CMake's: see CMakePresets.json.
.DEFAULT_GOAL := help
.PHONY: help demo check check-page check-asan check-tsan check-armhf check-model package check-package \
        check-abi accept-abi footprint bench check-instructions fuzz torture soak proportions docs format \
        check-format lint clean

# What one clone has compiled, another need not.
export CCACHE_BASEDIR = $(CURDIR)
export CCACHE_NOHASHDIR = 1

install = @scripts/install-dependencies.sh
sources = git ls-files '*.h' '*.cpp'

# $(call configure,PRESET)
define configure
	@mkdir -p build
	@cmake --preset $(1) >build/$(1).configure.log 2>&1 || { cat build/$(1).configure.log; exit 1; }
endef

# $(call build,PRESET[,TARGET...])
define build
	$(call configure,$(1))
	@cmake --build --preset $(1) $(if $(2),--target $(2))
endef

define test
	$(call build,$(1))
	@ctest --preset $(1)
endef

help: ## Show this list
	@awk -F ':.*## ' '/^[a-z-]+:.*## / { printf "  make %-18s %s\n", $$1, $$2 }' $(MAKEFILE_LIST)

demo: ## Watch a browser process and a plug-in process talk
	$(install) build check
	$(call build,dev,browser_host plugin_host rynctl)
	@demo/run.sh build/dev/bin build

check: ## Build everything and run the tests
	$(install) build check
	$(call test,dev)

check-page: ## Try the page of rynctl report in a headless Chromium
	$(install) build page
	$(call build,dev,rynctl)
	@/usr/bin/python3 tests/report/page_test.py build/dev/bin/rynctl examples/rynctl/evening.json

check-asan: ## Run the tests under the address and undefined-behaviour sanitizers
	$(install) build check
	$(call test,asan)

check-tsan: ## Run the tests under the thread sanitizer
	$(install) build check
	$(call test,tsan)

check-armhf: ## Cross-build everything for 32-bit ARM and run the tests under emulation
	$(install) build check armhf
	$(call test,armhf)

check-model: ## Check the model of the exchange, and that it fails without each safeguard (under a minute)
	$(install) model
	@docs/model/check.sh

package: ## Make the Debian packages for this machine's architecture and for armhf, in build/packages
	$(install) build check armhf package
	$(call build,release,hbbtv_ryn man_page)
	@cpack --preset release
	$(call build,armhf,hbbtv_ryn man_page)
	@cpack --preset armhf

check-package: package ## Install the packages into a fresh root and build the example hosts there
	@tests/package/run.sh build/packages

check-abi: ## Compare exported symbols and public layouts with the committed lists
	$(install) build check armhf
	$(call build,dev,hbbtv_ryn abi_layout)
	@ctest --preset dev -L abi
	$(call build,armhf,hbbtv_ryn abi_layout)
	@ctest --preset armhf -L abi

accept-abi: ## Take over the present symbols and layouts as the committed lists
	$(install) build check armhf
	$(call build,dev,accept_abi)
	$(call build,armhf,accept_abi)

footprint: ## Print the size of the library and the memory of an idle endpoint on armhf
	$(install) build check armhf
	$(call build,armhf,hbbtv_ryn footprint_empty_process footprint_idle_endpoint)
	@bench/footprint/run.sh build/armhf arm-linux-gnueabihf-strip qemu-arm -L /

bench: ## Measure against other buses (under 4 minutes)
	$(install) build bench
	$(call build,bench)
	@bench/run.sh

check-instructions: ## Fail when an exchange costs more instructions than agreed
	$(install) build bench
	$(call build,bench,instruction_scenario)
	@bench/instruction_guard.sh

fuzz: ## Run every fuzzer for 10 minutes, or for as long as FUZZ_SECONDS says
	$(install) build fuzz
	$(call build,fuzz)
	@fuzz/run.sh $(or $(FUZZ_SECONDS),600)

torture: ## Ten minutes of load, kills, restarts and hostile records
	$(install) build check
	$(call build,release,ryn_torture)
	@build/release/bin/ryn_torture --seconds 600

soak: ## Thirty minutes of the demo, one host living through all of it while the other is replaced
	$(install) build check
	$(call build,release,browser_host plugin_host)
	@pids=; for survivor in browser plug-in; do \
	  scripts/own_namespace.sh unshare --net scripts/soak.py build/release/bin $$survivor & pids="$$pids $$!"; \
	done; result=0; for pid in $$pids; do wait $$pid || result=1; done; exit $$result

proportions: ## Print how much of the code is tests, and fail when it is too much
	@scripts/proportions.sh

docs: ## Print the message tables of docs/protocol.md from the catalogue
	$(install) build check
	$(call build,dev,print_messages)
	@scripts/page_section.py --update docs/protocol.md build/dev/bin/print_messages

format: ## Put the sources into shape
	$(install) lint
	@$(sources) | xargs clang-format -i

check-format: ## Fail when a source is not in shape
	$(install) lint
	@$(sources) | xargs clang-format --dry-run --Werror

lint: ## Run clang-tidy over every source that is compiled
	$(install) build check lint bench fuzz
	$(call configure,dev)
	@scripts/lint.py build/dev
	$(call configure,bench)
	@scripts/lint.py build/bench bench
	$(call configure,fuzz)
	@scripts/lint.py build/fuzz fuzz

clean: ## Remove every build tree
	@rm -rf build

# Quillon: the targets people and CI use. Builds go to build*/, binaries to build*/bin/.
JOBS ?= 2
CMAKE_FLAGS ?=
FUZZ_SECONDS ?= 20
# Where make install puts Quillon; systemd and D-Bus look under /usr (the package's prefix).
PREFIX ?= /usr/local

PACKAGES := g++ make cmake pkg-config clang libclang-rt-14-dev \
	libglib2.0-dev libglib2.0-bin libjsoncpp-dev libsodium-dev libsqlite3-dev sqlite3 \
	libsystemd-dev libgtest-dev libgmock-dev libbenchmark-dev \
	dbus-daemon python3 python3-dbus python3-gi python3-dbusmock \
	scdoc dpkg-dev systemd \
	libgtk-4-dev xvfb xauth xdotool imagemagick

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: deps build test asan tsan fuzz bench demo run install package clean

# Installs what is missing; does nothing when everything is there already.
deps:
	@missing=$$(for p in $(PACKAGES); do \
		dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q '^install ok installed' || echo $$p; \
	done); \
	if [ -n "$$missing" ]; then \
		echo "Installing:" $$missing; \
		$(SUDO) apt-get update && \
		$(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $$missing; \
	fi

define configure_and_build
	cmake -S . -B $(1) $(2) $(CMAKE_FLAGS)
	cmake --build $(1) -j $(JOBS)
endef

build: deps
	$(call configure_and_build,build,)

test: build
	ctest --test-dir build --output-on-failure -j $(JOBS)

asan: deps
	$(call configure_and_build,build-asan,-DQUILLON_SANITIZE=address -DCMAKE_BUILD_TYPE=Debug)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --test-dir build-asan --output-on-failure -j $(JOBS)

tsan: deps
	$(call configure_and_build,build-tsan,-DQUILLON_SANITIZE=thread -DCMAKE_BUILD_TYPE=Debug)
	TSAN_OPTIONS="suppressions=$(CURDIR)/tests/tsan.supp halt_on_error=1 second_deadlock_stack=1" \
		ctest --test-dir build-tsan --output-on-failure -j $(JOBS)

fuzz: deps
	$(call configure_and_build,build-fuzz,-DQUILLON_FUZZ=ON -DQUILLON_TESTS=OFF -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)
	tests/fuzz/run-all.sh build-fuzz/bin $(FUZZ_SECONDS)

bench: deps
	$(call configure_and_build,build-bench,-DQUILLON_BENCH=ON -DQUILLON_TESTS=OFF -DCMAKE_BUILD_TYPE=Release)
	bench/run-all.sh build-bench/bin

# Installs under PREFIX (and DESTDIR, for a staging tree); the paths in the unit follow PREFIX.
install: deps
	$(call configure_and_build,build,-DCMAKE_INSTALL_PREFIX=$(PREFIX))
	DESTDIR="$(DESTDIR)" cmake --install build

# A Debian package (prefix /usr) in build-package/.
package: deps
	$(call configure_and_build,build-package,-DCMAKE_BUILD_TYPE=Release -DQUILLON_TESTS=OFF -DCMAKE_INSTALL_PREFIX=/usr)
	cd build-package && cpack

# The main flow on a private bus: a request, the prompt, the verdict, the list, a restart.
demo: deps
	cmake -S . -B build $(CMAKE_FLAGS)
	cmake --build build -j $(JOBS) --target quillon quillonctl quillon-platform quillon-ux
	tools/demo.sh build/bin

# The daemon on a private bus with its state in .demo/, until Ctrl-C.
run: build
	tools/run.sh build/bin

clean:
	rm -rf build build-asan build-tsan build-fuzz build-bench build-package .demo

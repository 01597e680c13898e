# The two commands of the README: `make run` and `make test`. Both install the
# Debian packages they need first (scripts/install-deps.sh).
.PHONY: deps run build test bench install clean

RELEASE := build/release
TESTING := build/test
BENCH := build/bench
CMAKE := cmake -G Ninja -Wno-dev

deps:
	@./scripts/install-deps.sh

build: deps
	@$(CMAKE) -S . -B $(RELEASE) -DCMAKE_BUILD_TYPE=Release -DOMBRELO_TESTS=OFF >/dev/null
	@ninja -C $(RELEASE) ombrelo

run: build
	./$(RELEASE)/src/app/ombrelo run

# Tests run under AddressSanitizer and UndefinedBehaviorSanitizer.
test: deps
	@./scripts/install-test-clients.sh
	@$(CMAKE) -S . -B $(TESTING) -DCMAKE_BUILD_TYPE=Debug -DOMBRELO_SANITIZE=ON >/dev/null
	@ninja -C $(TESTING)
	cd $(TESTING) && ctest --output-on-failure -j2

bench: deps
	@$(CMAKE) -S . -B $(BENCH) -DCMAKE_BUILD_TYPE=Release -DOMBRELO_TESTS=OFF -DOMBRELO_BENCH=ON >/dev/null
	@ninja -C $(BENCH)
	./scripts/run-benchmarks.sh $(BENCH)

install: build
	cmake --install $(RELEASE)

clean:
	rm -rf build

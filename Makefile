# One line a target. tools/packages installs what is missing, CMake's presets do the rest.
.PHONY: run build test check asan tsan fuzz races faults powercut soak bench clean packages-%

run: build; cd dist && exec ./transmit_server
build: packages-build; cmake --preset release && cmake --build --preset release --target dist
test: packages-test; tools/build_and_test release
check: packages-check; tools/check
asan: packages-check; tools/build_and_test asan
tsan: packages-check; tools/build_and_test tsan
fuzz: packages-check; cmake --preset fuzz && cmake --build --preset fuzz && fuzz/run
races: packages-check; cmake --preset tsan && cmake --build --preset tsan --target system_tests && TRANSMIT_RACE_SECONDS=60 build/tsan/bin/system_tests --gtest_filter='RaceTest.*'
faults powercut soak: build; cmake --build --preset release --target trials && trials/run $@
bench: packages-bench; cmake --preset release && cmake --build --preset release && bench/run
clean:; rm -rf build dist
packages-%:; tools/packages $*

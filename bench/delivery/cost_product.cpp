#include "delivery/cost_meter.h"
#include "delivery/process_log.h"
#include "delivery/role_talk.h"
#include "delivery/sample_front.h"
#include "harness/live_camera.h"

// The product's camera process of the row frame_cost: the module with its reader and gate threads, and a consumer that
// pulls sample after sample and looks at nothing but the stamp.
namespace ravlo::bench {
namespace {

RAVLO_ROLE(CostProduct) {
    RoleArguments next(arguments);
    BlockPlan plan{};
    plan.geometry = next.Geometry();
    plan.turn = next.Number();
    plan.blocks = next.Number();
    plan.firstOfBlocks = 1;

    const std::wstring pipe = next.Text();
    const std::wstring mark = next.Text();

    const CameraGround ground;
    const test::ModuleUnderTest module;
    test::Camera camera(module, {.geometry = GeometryText(plan.geometry), .pipeName = pipe});
    camera.Start();
    const ProcessLog log(module.Handle());
    CostMeter meter(plan, std::string(mark.begin(), mark.end()));
    do {
        while (meter.Delivered(StampInFront(PullSample(camera.Stream()).Get()))) {}
    } while (meter.AwaitNextBlock());

    meter.TellAll();
    Tell("lines_per_sample", static_cast<double>(log.Messages().size()) / static_cast<double>(meter.Samples()));
    return 0;
}

}  // namespace
}  // namespace ravlo::bench

// ZephrineManager: the effect-lines filter itself. It builds the property panel, keeps the panel's
// values, the preset list and the guide list in step, and on every run turns the panel into engine
// parameters, drives MoveEffectFilter and hands the result back to the host.
//
//   host                         ZephrineManager
//   filter initialise  ------->  OnInitFilter: panel, preset rows, guide rows
//   item changed       ------->  OnPropertyChanged: field updated, preset loaded or points moved
//   filter run         ------->  OnPrepareDraw, then per pass OnUpdateParameter + OnCalculate, then
//                                OnExitDraw (saves a dated preset when "save on exit" is ticked)
//
// Every hook runs on the host's thread. OnProgress is the engine's progress callback and is called
// by the engine on the thread that runs its pool, which is the host's thread too. No hook lets an
// exception out: a failure inside one leaves the host's images as they were.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/MoveEffectFilter.h"
#include "engine/MoveEffectParam.h"
#include "guide/PathParser.h"
#include "guide/PathPoint.h"
#include "host/PluginManager.h"

// One row of the guide list.
struct GuideEntry {
    std::u16string name;                 // ":S" or ":C" built in, else a guide file's name without ".svg"
    std::unique_ptr<PathParser> parser;  // null until the guide is first drawn with, then kept
};

class ZephrineManager : public PluginManager {
public:
    // The module identifier the host knows the filter by.
    static constexpr char kGuid[] = "3A7C51E2-94B0-4F6D-8E21-C5D90B7A4F13";
    // Progress is reported to the host in this many steps a pass.
    static constexpr int kProgressSteps = 500;

    // Item keys; each is also the string resource id of the item's caption.
    enum ItemKey : int64_t {
        kItemPreset = 140,
        kItemSaveOnExit = 141,
        kItemPathType = 150,
        kItemGuide = 161,
        kItemCurvature = 162,
        kItemPoint1 = 170,
        kItemPoint2 = 171,
        kItemPoint3 = 172,
        kItemSize = 202,
        kItemHardness = 203,
        kItemFluction = 204,
        kItemIn = 205,
        kItemOut = 206,
        kItemAsDist = 207,
        kItemEasing = 208,
        kItemPosition = 220,
        kItemPosFluct = 221,
        kItemLength = 222,
        kItemLenFluct = 223,
        kItemSpacing = 224,
        kItemSpcFluct = 225,
        kItemLenGain = 226,
        kItemSpcGain = 227,
        kItemConnect = 228,
    };

    // Fields from the default preset; the points stay (0, 0) and the guide at row 0.
    ZephrineManager();
    ~ZephrineManager() override;

    // ---- Host hooks ----
    void OnGetGuid(char* buffer) override;
    bool OnInitFilter() override;
    bool OnPropertyChanged(int64_t itemKey, _Property* property) override;
    void OnPrepareDraw() override;
    void OnUpdateParameter() override;
    void OnCalculate() override;
    void OnExitDraw() override;

    // The engine's progress callback (manager = this): reports each new step of 1/500 to the host and
    // asks it whether to go on; 0 tells the engine to stop.
    static int OnProgress(int total, int done, void* manager);

    // ---- Panel behaviour ----
    // The arrangement changed: read it and put the three points at its defaults. Always true.
    bool UpdateTemplate();
    // Places one point at the current arrangement's default position on the canvas.
    void ResetPointFromCurrentPathType(int64_t itemKey, Point& point);
    // Every item back to its default, the points to the default arrangement's positions.
    void ResetPreset();
    // Applies the preset chosen in the preset list; row 0 resets. False when nothing could be loaded.
    bool LoadPreset();
    // Saves the current values as a preset named after the date and time and lists it at once.
    void SavePreset();

    // Each sets the field and the item, to a value the item can hold: numbers within the item's range
    // (NaN gives its default), points within reach of the canvas (a point that is not a number gives
    // the arrangement's default).
    void SetIniPathType(int64_t itemKey, int value, int64_t& field);
    // relative is a fraction of the canvas on each axis.
    void SetIniCanvasPoint(int64_t itemKey, const PathPoint& relative, Point& point);
    // Finds the guide by name, ignoring letter case; an unknown name changes nothing.
    void SetIniGuideName(int64_t itemKey, const std::string& name, int64_t& field);
    void SetIniDouble(int64_t itemKey, double value, double& field);
    void SetIniInteger(int64_t itemKey, int64_t value, int64_t& field);
    // A canvas point held within kMaxPointReach of the canvas.
    Point HoldOnCanvas(Point point);
    void SetIniBool(int64_t itemKey, bool value, bool& field);

    // ---- State, for tests and tools ----
    const MoveEffectParam& GetParam() const { return m_param; }
    const PointTarget& GetTarget() const { return m_target; }
    const std::vector<std::u16string>& GetPresetNames() const { return m_presetNames; }
    const std::vector<GuideEntry>& GetGuides() const { return m_guides; }

private:
    // Fields 1-23 from the default preset: points (0, 0), guide row 0, "save on exit" off.
    void ApplyDefaultPreset();
    // The guide of the current row, loaded on first use; null when the row does not exist.
    PathParser* GetCurrentGuide();
    // Runs the engine once and writes the result back unless the host cancelled.
    void Calculate();

    bool m_saveOnExit = false;
    int64_t m_pathType = 0;  // 0 radiate, 1 parallel, 2 circle
    Point m_point1;          // canvas px
    Point m_point2;
    Point m_point3;
    int64_t m_guideIndex = 0;  // row of m_guides
    double curvature = 0;
    double size = 0;
    double hardness = 0;
    double fluction = 0;
    int64_t in = 0;   // px when asdist, else thousandths of the line length
    int64_t out = 0;  // same units as in
    bool asdist = false;
    bool easing = false;
    int64_t position = 0;
    double posfluct = 0;
    int64_t length = 0;
    double lenfluct = 0;
    int64_t spacing = 0;
    double spcfluct = 0;
    double lengain = 0;
    double spcgain = 0;
    bool connect = false;
    std::vector<std::u16string> m_presetNames;  // one per row of the preset list; "" is the defaults row
    std::vector<GuideEntry> m_guides;           // one per row of the guide list
    MoveEffectParam m_param{};
    PointTarget m_target{};
    int32_t m_lastProgress = 0;                        // last step reported this pass
    int64_t m_hostState = kHostProcessAnswerContinue;  // host's last answer to "may I go on?"
    // The last calculation's coverage buffer, for the next one of this run (the host restarts the
    // calculation at every change of a setting); released when the run ends.
    SpareCoverage m_spareCoverage;
};

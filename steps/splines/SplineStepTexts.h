#pragma once

#include <QString>

namespace WelkPlugin {

/// The spline step's own words for its toolbar, dialogs and message
/// boxes, so that the page that hosts the step shows exactly these.
namespace SplineStepTexts {

// Toolbar: tooltips, and the labels of the buttons that have one.
inline QString mirrorLabel() { return QStringLiteral("Mirror"); }
inline QString mirrorTip() { return QStringLiteral("Mirrors selected spline using topological symmetry"); }
inline QString reverseLabel() { return QStringLiteral("Reverse"); }
inline QString reverseTip() { return QStringLiteral("Reverse points order in selected spline"); }
inline QString deleteTip() { return QStringLiteral("Deletes selected spline"); }
inline QString swapPrevLabel() { return QStringLiteral("Swap Prev"); }
inline QString swapPrevTip() { return QStringLiteral("Swap selected spline order with previous"); }
inline QString swapNextLabel() { return QStringLiteral("Swap Next"); }
inline QString swapNextTip() { return QStringLiteral("Swap selected spline order with next"); }
inline QString clearTip() { return QStringLiteral("Deletes all splines"); }
inline QString importTip() { return QStringLiteral("Import all splines from file"); }
inline QString exportTip() { return QStringLiteral("Export all splines to file"); }

// Rename dialog; its message is shown in this style while the name is refused.
inline QString renameTitle() { return QStringLiteral("Rename Spline"); }
inline QString renameLabel() { return QStringLiteral("New spline name"); }
inline QString refusedNameStyle() { return QStringLiteral("color: #eb4034;"); }
inline QString renameAllTitle() { return QStringLiteral("Rename all splines?"); }
inline QString renameAllQuestion() { return QStringLiteral("Are you sure you want to rename all splines?"); }

// Resample dialog.
inline QString resampleTitle() { return QStringLiteral("Resample Spline"); }
inline QString resampleLabel() { return QStringLiteral("New spline control points count"); }

// Files.
inline QString formatTitle() { return QStringLiteral("Select splines format"); }
inline QString exportTitle() { return QStringLiteral("Export file"); }
inline QString exportFilter() { return QStringLiteral("JSON Files (*.json);;Text Files (*.txt);;All Files(*.*)"); }
inline QString exportSuffix() { return QStringLiteral("json"); }
inline QString exportDoneTitle() { return QStringLiteral("Export"); }
inline QString exportDone() { return QStringLiteral("Splines were successfully saved"); }
inline QString importTitle() { return QStringLiteral("Import file"); }
inline QString importFilter() { return QStringLiteral("All Files(*.*);;JSON Files (*.json);;Text Files (*.txt)"); }
/// Title of the box that shows an import failure.
inline QString importFailedTitle() { return QStringLiteral("Import"); }

// Mirror.
inline QString symmetryProgressTitle() { return QStringLiteral("Detecting symmetrical polygons..."); }

} // namespace SplineStepTexts
} // namespace WelkPlugin

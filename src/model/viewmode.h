#pragma once
enum class ViewMode { grid, preview, compare };

#include "pipeline/Applicator.h"

#include "image/DocumentEditor.h"
#include "image/ZmapDocument.h"
#include "pipeline/Blender.h"
#include "pipeline/LinearRecolour.h"
#include "pipeline/Paint.h"
#include "pipeline/PixelRuns.h"
#include "views/cameras/SurfaceFrame.h"
#include "views/cameras/ViewProj.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <typeinfo>

namespace {

// The working rows of paintRow. Static: only one stroke runs at a time, on the interface
// thread, and a span never exceeds a tile's width.
float maskRow[maxSpanLength];
float alphaRow[maxSpanLength];
std::uint32_t depthRow[maxSpanLength];
ColourPOD colourRow[maxSpanLength];

/// Calls `f(stage)` for each present stage in the start order: matting, effect, fog,
/// texture, recolour, grain, blend.
template <class F> void forEachStage(Applicator& a, F f) {
    PipelineTool* stages[] = {a.matting.get(),  a.effect.get(), a.fog.get(),  a.texture.get(),
                              a.recolour.get(), a.grain.get(),  a.blend.get()};
    for (PipelineTool* stage : stages) {
        if (stage) {
            f(*stage);
        }
    }
}

/// True when the colour stages of plain paint come to one colour, set in `colour`: an effect
/// that only copies the source colour (or none), a recolour that replaces the colour at full
/// strength and no fog, texture or grain. The working colour of every pixel with alpha above
/// 0 is then that colour, whatever the source, so the copy of the source is wasted work.
bool solidColour(const Applicator& a, ColourPOD& colour) {
    if (a.wet || a.needsDepthFlags || a.fog || a.texture || a.grain || !a.recolour) {
        return false;
    }
    if (a.effect) {
        const EffectTool& effect = *a.effect;
        if (typeid(effect) != typeid(Paint)) {
            return false;
        }
    }
    const RecolourTool& recolour = *a.recolour;
    if (typeid(recolour) != typeid(LinearRecolour)) {
        return false;
    }
    const auto& linear = static_cast<const LinearRecolour&>(recolour);
    if (linear.strength() != 1.0f) {
        return false;
    }
    colour = linear.colour();
    return true;
}

} // namespace

void Applicator::start(ZmapDocument& document, StrokeView* view, const StrokePoint& point) {
    abandoned = false;
    finished = false;
    needsDepthFlags = 0;
    planes_.reset();
    PipelineTool* stages[] = {matting.get(),  effect.get(), fog.get(),  texture.get(),
                              recolour.get(), grain.get(),  blend.get()};
    for (PipelineTool* stage : stages) {
        if (stage) {
            stage->start(point.x, point.y, document);
            needsDepthFlags |= stage->needsDepth() ? 1 : 0;
        }
        if (stage == effect.get()) {
            repainting = effect && effect->repaints();
        }
    }

    // The surface of the stroke: the effect's plane, else the locked plane.
    Plane plane;
    bool hasPlane = effect && effect->plane(plane);
    if (!hasPlane && matting) {
        hasPlane = matting->lockPlane(plane);
    }
    if (!hasPlane || !document.viewProj()) {
        return;
    }
    const SurfaceFrame frame(plane, *document.viewProj(), surfaceTolerance);
    // Exact comparison on purpose: any tolerance would change when stages hear of it.
    const Plane camera = document.planeAt(point.x, point.y);
    if (camera.normal() != plane.normal() ||
        camera.distanceFromOrigin() != plane.distanceFromOrigin()) {
        surfaceChanged(frame);
    }
    forEachStage(*this, [&](PipelineTool& stage) { stage.setSurface(frame); });
}

void Applicator::finish(ZmapDocument& document, StrokeView* view) {
    forEachStage(*this, [](PipelineTool& stage) { stage.finish(); });
    // Nothing is kept from one stroke to the next: a kept tile pins the document's tile.
    planes_.reset();
    ready();
    finished = true;
}

void Applicator::abandon() {
    abandoned = true;
    planes_.reset();
    // A cube image's faces share their edge pixels; a stroke cut short may have painted one
    // copy of an edge and not the other.
    ZmapDocument* document = DocumentEditor::runningDocument();
    if (!document || !document->viewProj() ||
        document->viewProj()->viewType() != ViewProj::cubicView) {
        return;
    }
    const std::int32_t n = document->viewProj()->faceSize().size();
    TileBitmap* planes[] = {document->rgb.get(),       document->z.get(),
                            document->mat.get(),       document->originalRgb.get(),
                            document->originalZ.get(), document->originalMat.get(),
                            document->cutoutRgb.get(), document->cutoutZ.get(),
                            document->cutoutMat.get(), document->cutoutAlpha.get()};
    for (TileBitmap* plane : planes) {
        if (plane) {
            plane->stitchFaces(n);
        }
    }
}

void Applicator::runMatting(Span& span, int first, int last) {
    matting->run(span, first, last);
}
void Applicator::runEffect(Span& span, int first, int last) {
    effect->run(span, first, last);
}
void Applicator::runFog(Span& span, int first, int last) {
    fog->run(span, first, last);
}
void Applicator::runTexture(Span& span, int first, int last) {
    texture->run(span, first, last);
}
void Applicator::runRecolour(Span& span, int first, int last) {
    recolour->run(span, first, last);
}
void Applicator::runGrain(Span& span, int first, int last) {
    grain->run(span, first, last);
}
void Applicator::runBlend(Span& span, int first, int last) {
    blend->run(span, first, last);
}
void Applicator::commitEffect(Span& span, int first, int last) {
    effect->commit(span, first, last);
}
void Applicator::runFogLate(Span& span, int first, int last) {
    fog->runLate(span, first, last);
}

void Applicator::blendSolid(Span& span, ColourPOD colour, int first, int last, bool alphaUniform) {
    BlendTool& stage = *blend;
    if (typeid(stage) == typeid(Blender)) {
        static_cast<Blender&>(stage).runSolid(span, colour, first, last, alphaUniform);
        return;
    }
    runs::fillColour(span.colour, colour, first, last);
    runBlend(span, first, last);
}

IExtent<2> Applicator::paintRow(ZmapDocument& document, std::int32_t x0, std::int32_t y,
                                std::int32_t begin, std::int32_t end, const float* coverage) {
    return layRow(document, x0, y, begin, end, coverage, false);
}

IExtent<2> Applicator::paintRowOfOneCoverage(ZmapDocument& document, std::int32_t x0,
                                             std::int32_t y, std::int32_t begin, std::int32_t end,
                                             const float* coverage) {
    return layRow(document, x0, y, begin, end, coverage, true);
}

IExtent<2> Applicator::layRow(ZmapDocument& document, std::int32_t x0, std::int32_t y,
                              std::int32_t begin, std::int32_t end, const float* coverage,
                              bool oneCoverage) {
    IExtent<2> changed;
    if (y < 0 || y >= document.height()) {
        return changed;
    }
    begin = std::max(begin, -x0);
    end = std::min(end, document.width() - x0);
    if (oneCoverage) {
        if (begin < end && coverage[begin] == 0) {
            begin = end;
        }
    } else {
        while (begin < end && coverage[begin] == 0) {
            ++begin;
        }
        while (end > begin && coverage[end - 1] == 0) {
            --end;
        }
    }
    ColourPOD solid{};
    const bool solidChain = fuseSolidPaint && !plainWalk && solidColour(*this, solid);
    if (begin >= end || !planes_.beginRow(document, y, wet, !solidChain)) {
        return changed;
    }

    // The colour stages in their fixed order, between the effect and the commit.
    auto colourStages = [&](Span& span, int p, int q) {
        if (effect) {
            runEffect(span, p, q);
        }
        if (fog) {
            runFog(span, p, q);
        }
        if (recolour) {
            runRecolour(span, p, q);
        }
        if (texture) {
            runTexture(span, p, q);
        }
        if (fog) {
            runFogLate(span, p, q);
        }
        if (grain) {
            runGrain(span, p, q);
        }
    };

    // The fields of the paint span that stay the same along the row.
    Span paint;
    paint.document = &document;
    paint.y = y;
    paint.colour = colourRow;
    paint.alpha = alphaRow;
    paint.depth = depthRow;
    paint.flags = needsDepthFlags ? spanNeedsDepth : 0;

    // One colour laid without locks (a fill, a stroke): a run of one coverage whose stroke
    // alpha is one value rises to one value at once. Nothing is trimmed (every pixel has the
    // same coverage and the same stroke alpha), no stage but the blend runs, and no plane
    // is fetched but the stroke alpha, the image and the image before the stroke where the
    // blend reads it. Other runs take the walk below.
    Blender* rowBlender = nullptr;
    if (solidChain && !matting && !repainting && blend) {
        BlendTool& stage = *blend;
        if (typeid(stage) == typeid(Blender)) {
            rowBlender = static_cast<Blender*>(&stage);
        }
    }
    // The coverage of pixels i..i + n - 1 in `value` when it is one value. Checked a run at
    // a time, just before the run is laid, so that the check overlaps the image's writes.
    auto runCoverage = [&](std::int32_t i, std::int32_t n, Alpha& value) {
        value = coverage[i];
        return oneCoverage ? value == value : runs::allSame(coverage, i, i + n);
    };
    // The value that alphaRow holds throughout, while the row's runs keep it (NaN: none).
    Alpha alphaRowValue = std::numeric_limits<Alpha>::quiet_NaN();
    // Whole tiles of such a row are laid in one walk over the row of tiles (below); a tile
    // whose stroke alpha row is written out is left to the run's own path, from this index.
    std::int32_t runPathAt = -1;
    TileRowWriter* colourWriter = rowBlender ? planes_.colourWriter() : nullptr;
    const bool tileWalk = colourWriter && colourWriter->beginRow(y) &&
                          colourWriter->bitmap().geometry().width ==
                              planes_.strokeAlphaWriter().bitmap().geometry().width &&
                          colourWriter->bitmap().geometry().xShift ==
                              planes_.strokeAlphaWriter().bitmap().geometry().xShift;

    for (std::int32_t i = begin; i < end;) {
        if (tileWalk && i != runPathAt) {
            const TileGeometry& g = colourWriter->bitmap().geometry();
            const std::int32_t x = x0 + i;
            const std::int32_t firstColumn = x >> g.xShift;
            const std::int32_t lastColumn =
                x0 + end == g.width ? g.tilesAcross : (x0 + end) >> g.xShift;
            if ((x & g.xMask) == 0 && firstColumn < lastColumn) {
                const bool prefetchNext = ((y + 1) & g.yMask) != 0 && y + 1 < g.height;
                std::int32_t lo = std::numeric_limits<std::int32_t>::max();
                std::int32_t hi = -1;
                const std::int32_t stop = planes_.strokeAlphaWriter().riseUniformRows(
                    y, firstColumn, lastColumn,
                    [&](std::int32_t column, Alpha& value) {
                        return runCoverage((column << g.xShift) - x0, g.columnWidth(column), value);
                    },
                    [&](std::int32_t column, Alpha rise) {
                        if (!(rise == alphaRowValue)) {
                            runs::fill(alphaRow, rise, 0, maxSpanLength);
                            alphaRowValue = rise;
                        }
                        const std::int32_t cx = column << g.xShift;
                        const std::int32_t width = g.columnWidth(column);
                        auto* out = reinterpret_cast<ColourPOD*>(colourWriter->rowOfTile(column));
                        const ColourPOD* base =
                            rowBlender->solidReadsBase(rise) ? planes_.baseColourRun(cx) : nullptr;
                        // The same run one row down is written after every other tile of
                        // this row: ask for it while the tile is at hand.
                        if (prefetchNext) {
                            const std::int32_t stride = g.rowStride(column, 3);
                            const auto* next = reinterpret_cast<const char*>(out) + stride;
                            for (std::int32_t k = 0; k < width * 3; k += 64) {
                                __builtin_prefetch(next + k, 1);
                            }
                            if (base) {
                                const auto* nextBase = reinterpret_cast<const char*>(base) + stride;
                                for (std::int32_t k = 0; k < width * 3; k += 64) {
                                    __builtin_prefetch(nextBase + k);
                                }
                            }
                        }
                        rowBlender->blendSolid(out, base, solid, alphaRow, colourRow, 0, width,
                                               true);
                        lo = std::min(lo, cx);
                        hi = std::max(hi, cx + width - 1);
                    });
                if (hi >= lo) {
                    changed |= IExtent<2>(lo, y, hi, y);
                }
                i = std::min((stop << g.xShift) - x0, end);
                if (stop < lastColumn) {
                    runPathAt = i;
                }
                continue;
            }
        }
        if (rowBlender) {
            const std::int32_t tileLength = planes_.strokeAlphaRun(x0 + i);
            if (tileLength <= 0) {
                break;
            }
            const std::int32_t length = std::min(tileLength, end - i);
            Alpha under = 0;
            Alpha value = 0;
            if (planes_.strokeAlphaUniform(under) && runCoverage(i, length, value)) {
                const Alpha rise = (1.0f - under) * value + under;
                if (under < rise) {
                    planes_.fillStrokeAlpha(rise, 0, length);
                    if (!(rise == alphaRowValue)) {
                        runs::fill(alphaRow, rise, 0, maxSpanLength);
                        alphaRowValue = rise;
                    }
                    paint.x = x0 + i;
                    paint.length = tileLength;
                    paint.baseColour =
                        rowBlender->solidReadsBase(rise) ? planes_.baseColourRun(x0 + i) : nullptr;
                    paint.colourWriter = planes_.colourWriter();
                    rowBlender->runSolid(paint, solid, 0, length, true);
                    changed |= IExtent<2>(x0 + i, y, x0 + i + length - 1, y);
                }
                i += length;
                continue;
            }
            // The walk below writes the working alpha.
            alphaRowValue = std::numeric_limits<Alpha>::quiet_NaN();
        }
        SpanPlanes planes;
        const std::int32_t tileLength = planes_.run(x0 + i, planes);
        if (tileLength <= 0) {
            break;
        }
        const std::int32_t length = std::min(tileLength, end - i);
        const float* m = coverage + i;
        // Read only: a row of the plane that holds one value is read from a row of it.
        const Alpha* s = planes_.strokeAlpha();

        // Trim pixels that can't change: no coverage, or already fully covered.
        int a = 0;
        int b = length;
        auto idle = [&](int k) { return m[k] == 0 || (!repainting && s[k] == 1.0f); };
        while (a < b && idle(a)) {
            ++a;
        }
        while (b > a && idle(b - 1)) {
            --b;
        }
        if (a == b) {
            i += length;
            continue;
        }

        paint.x = x0 + i;
        paint.length = tileLength;
        paint.sourceColour = planes.sourceColour;
        paint.baseColour = planes.baseColour;
        paint.baseDepth = planes.baseDepth;
        paint.baseMaterial = planes.baseMaterial;
        paint.colourWriter = planes_.colourWriter();

        // The locks lower the mask. Without them the coverage is the mask as it stands.
        const float* mask = m;
        if (matting) {
            runs::copy(maskRow, m, a, b);
            Span maskSpan = paint;
            maskSpan.alpha = maskRow;
            runMatting(maskSpan, a, b);
            while (a < b && maskRow[a] == 0) {
                ++a;
            }
            while (b > a && maskRow[b - 1] == 0) {
                --b;
            }
            if (a == b) {
                i += length;
                continue;
            }
            mask = maskRow;
        }
        // The stroke's alpha grows by "over": C = (1 - S) * M + S. Where every pixel rises
        // (or, repainting, every mask is above 0) the walk below finds one sub-run, a..b.
        // One mask value over stroke alpha of one value (a stroke at full coverage, a fill)
        // rises to one value, worked out once and recorded as such.
        Alpha under = 0;
        const bool oneValue = !plainWalk && !repainting && !wet &&
                              planes_.strokeAlphaUniform(under) &&
                              runs::endOfRun(mask, mask[a], a, b) == b;
        bool oneRun = true;
        if (oneValue) {
            const Alpha rise = (1.0f - under) * mask[a] + under;
            if (!(under < rise)) {
                i += length;
                continue;
            }
            runs::fill(alphaRow, rise, a, b);
        } else {
            const bool allRise = runs::overAllRise(alphaRow, mask, s, a, b);
            oneRun = repainting ? runs::noneZero(mask, a, b) : allRise;
        }

        int p = a;
        while (p < b) {
            int q = b;
            if (!oneRun || plainWalk) {
                if (repainting) {
                    while (p < b && mask[p] == 0) {
                        ++p;
                    }
                } else {
                    while (p < b && !(s[p] < alphaRow[p])) {
                        ++p;
                    }
                }
                if (p >= b) {
                    break;
                }
                q = p + 1;
                if (repainting) {
                    while (q < b && mask[q] != 0) {
                        ++q;
                    }
                }
                while (q < b && s[q] < alphaRow[q]) {
                    ++q;
                }
            }

            bool blended = false;
            if (!wet) {
                // A whole tile row rising to one value (full coverage) is recorded, not written;
                // the plain walk writes every value.
                if (plainWalk) {
                    runs::copy(planes_.writableStrokeAlpha(), alphaRow, p, q);
                } else if (oneValue) {
                    planes_.fillStrokeAlpha(alphaRow[p], p, q);
                } else {
                    planes_.writeStrokeAlpha(alphaRow, p, q);
                }
                // A risen alpha is above 0 (one value's rise is, by the test above).
                if (solidChain && (oneValue || runs::allPositive(alphaRow, p, q))) {
                    // One colour over the whole sub-run: the blend takes it as it stands
                    // (Paint's commit does nothing).
                    if (blend) {
                        blendSolid(paint, solid, p, q, oneValue);
                    }
                    blended = true;
                } else {
                    colourStages(paint, p, q);
                }
            } else {
                // A pixel first touched in this stroke gets its colour in the wet planes;
                // later passes reuse it.
                Span wetSpan = paint;
                wetSpan.colour = planes.wetColour;
                wetSpan.alpha = planes.wetAlpha;
                for (int k = p; k < q;) {
                    const bool fresh = s[k] == 0.0f;
                    int e = k + 1;
                    while (e < q && (s[e] == 0.0f) == fresh) {
                        ++e;
                    }
                    if (fresh) {
                        runs::fill(planes.wetAlpha, 1.0f, k, e);
                        colourStages(wetSpan, k, e);
                    }
                    k = e;
                }
                runs::copy(planes_.writableStrokeAlpha(), alphaRow, p, q);
                std::memcpy(colourRow + p, planes.wetColour + p,
                            static_cast<std::size_t>(q - p) * sizeof(ColourPOD));
                runs::multiply(alphaRow, planes.wetAlpha, p, q);
            }
            if (!blended) {
                if (effect) {
                    commitEffect(paint, p, q);
                }
                if (blend) {
                    runBlend(paint, p, q);
                }
            }
            changed |= IExtent<2>(x0 + i + p, y, x0 + i + q - 1, y);
            p = q;
        }
        i += length;
    }
    return changed;
}
